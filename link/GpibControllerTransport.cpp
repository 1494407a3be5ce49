#include "link/GpibControllerTransport.h"

#include "link/Frame.h"
#include "link/LinkTimeouts.h"

#include <QSerialPort>
#include <QTcpSocket>
#include <algorithm>
#include <optional>

namespace {
constexpr char Escape = 27;
// A talker's message that says "nothing for you": an empty frame.
constexpr int EmptyMessageBytes = 2;
// What the controller sends after each talker's message (++eot_char). Any byte but END would
// do: a message ends with the END byte that closes its last frame, so between frames only END
// bytes and this mark come. LF keeps a trace of the line readable.
constexpr char EndOfMessage = '\n';
const QByteArray AskToTalk = QByteArrayLiteral("++read eoi\n");
} // namespace

GpibControllerTransport::GpibControllerTransport(const GpibTarget &target, QObject *parent)
    : Transport(parent), m_target(target)
{
    m_openingTimeout.setSingleShot(true);
    connect(&m_openingTimeout, &QTimer::timeout, this, &GpibControllerTransport::onOpeningTimeout);
    m_readTimeout.setSingleShot(true);
    connect(&m_readTimeout, &QTimer::timeout, this, &GpibControllerTransport::onReadTimeout);
    m_nextPoll.setSingleShot(true);
    connect(&m_nextPoll, &QTimer::timeout, this, &GpibControllerTransport::askToTalk);
}

GpibControllerTransport::~GpibControllerTransport()
{
    close();
}

QByteArray GpibControllerTransport::escaped(const QByteArray &data)
{
    QByteArray out;
    out.reserve(data.size() + data.size() / 16 + 1);
    for (char c : data) {
        if (c == '\r' || c == '\n' || c == Escape || c == '+')
            out.append(Escape);
        out.append(c);
    }
    return out;
}

void GpibControllerTransport::open()
{
    close();
    m_device.reset();
    if (m_target.controller == GpibTarget::Controller::PlusPlusSerial)
        openSerial();
    else
        connectTcp();
}

void GpibControllerTransport::openSerial()
{
    auto port = std::make_unique<QSerialPort>(m_target.device);
    port->setBaudRate(QSerialPort::Baud115200); // USB controllers ignore it; the classic rate otherwise
    if (!port->open(QIODevice::ReadWrite)) {
        failOpening(QStringLiteral("%1 cannot be opened (%2); check the device name, the dialout group and that no "
                                   "other program uses it")
                        .arg(m_target.describe(), port->errorString()));
        return;
    }
    connect(port.get(), &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError e) {
        if (e == QSerialPort::ResourceError || e == QSerialPort::ReadError || e == QSerialPort::WriteError)
            lost(QStringLiteral("%1 went away; check its USB cable").arg(m_target.describe()));
    });
    m_device = std::move(port);
    connect(m_device.get(), &QIODevice::readyRead, this, &GpibControllerTransport::onReadable);
    setUpController();
}

void GpibControllerTransport::connectTcp()
{
    auto socket = std::make_unique<QTcpSocket>();
    QTcpSocket *raw = socket.get();
    connect(raw, &QTcpSocket::connected, this, &GpibControllerTransport::setUpController);
    connect(raw, &QTcpSocket::errorOccurred, this, [this, raw] {
        if (m_state == State::Connecting)
            failOpening(QStringLiteral("%1 cannot be reached (%2); check the address and the network")
                            .arg(m_target.describe(), raw->errorString()));
    });
    connect(raw, &QTcpSocket::disconnected, this, [this] {
        lost(QStringLiteral("%1 closed the connection; check the controller and the network").arg(m_target.describe()));
    });
    connect(raw, &QIODevice::readyRead, this, &GpibControllerTransport::onReadable);
    m_device = std::move(socket);
    m_state = State::Connecting;
    m_openingTimeout.start(LinkTimeouts::Gpib::Connect);
    raw->connectToHost(m_target.device, m_target.tcpPort);
}

void GpibControllerTransport::setUpController()
{
    // Controller mode, the instrument's address, reads only when asked, EOI on the last byte
    // written and nothing appended to it, EndOfMessage after each message read, and how long
    // a read waits for a talker.
    m_state = State::SettingUp;
    m_setUpAnswer.clear();
    m_device->write(QStringLiteral("++mode 1\n++addr %1\n++auto 0\n++eoi 1\n++eos 3\n++eot_enable 1\n++eot_char %2\n"
                                   "++read_tmo_ms %3\n++ver\n")
                        .arg(m_target.address)
                        .arg(int(EndOfMessage))
                        .arg(LinkTimeouts::Gpib::TalkerSilence)
                        .toLatin1());
    m_openingTimeout.start(LinkTimeouts::Gpib::ControllerAnswer);
}

void GpibControllerTransport::onOpeningTimeout()
{
    if (m_state == State::Connecting)
        failOpening(QStringLiteral("%1 cannot be reached (no answer within %2 s); check the address and the network")
                        .arg(m_target.describe())
                        .arg(LinkTimeouts::Gpib::Connect / 1000));
    else
        failOpening(QStringLiteral("%1 does not answer (no reply to ++ver); check that it is a \"++\" GPIB controller "
                                   "and that it is switched on")
                        .arg(m_target.describe()));
}

void GpibControllerTransport::failOpening(const QString &reason)
{
    close();
    reportFailed(reason);
}

void GpibControllerTransport::write(const QByteArray &bytes)
{
    if (m_state != State::Open)
        return;
    QByteArray line = escaped(bytes) + '\n';
    // A read behind each request: the controller carries it out once the request has gone, so
    // the answers to earlier ones come back while the later ones still keep the bus busy.
    if (mayAskToTalk()) {
        line += AskToTalk;
        noteReadAsked();
    }
    m_device->write(line);
}

void GpibControllerTransport::close()
{
    dropReports();
    m_openingTimeout.stop();
    m_readTimeout.stop();
    m_nextPoll.stop();
    m_awaiting = m_controllerMarksEnds = m_insideFrame = false;
    m_readsAsked = m_messageBytes = 0;
    m_state = State::Closed;
    if (m_device) {
        m_device->disconnect(this);
        m_device->close();
    }
}

double GpibControllerTransport::wireTimeMs(int count) const
{
    return LinkTimeouts::Gpib::wireTimeMs(count);
}

void GpibControllerTransport::setAwaitingAnswers(bool awaiting)
{
    m_awaiting = awaiting;
    askToTalk();
}

bool GpibControllerTransport::mayAskToTalk() const
{
    if (m_state != State::Open || !m_awaiting)
        return false;
    return m_controllerMarksEnds ? m_readsAsked < LinkTimeouts::Gpib::MostReadsAsked : m_readsAsked == 0;
}

void GpibControllerTransport::askToTalk()
{
    if (!mayAskToTalk())
        return;
    m_device->write(AskToTalk);
    noteReadAsked();
}

void GpibControllerTransport::noteReadAsked()
{
    ++m_readsAsked;
    m_nextPoll.stop(); // the read asked is the poll
    if (!m_readTimeout.isActive())
        m_readTimeout.start(LinkTimeouts::Gpib::TalkerSilence + LinkTimeouts::Gpib::ReadMargin);
}

void GpibControllerTransport::onReadable()
{
    const QByteArray bytes = m_device->readAll();
    if (m_state == State::Open) {
        takeMessageBytes(bytes);
        return;
    }
    m_setUpAnswer += bytes;
    if (m_state != State::SettingUp || !m_setUpAnswer.contains('\n'))
        return;
    m_openingTimeout.stop();
    m_state = State::Open;
    reportOpened();
}

void GpibControllerTransport::takeMessageBytes(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    QByteArray frames;
    frames.reserve(bytes.size());
    std::optional<bool> lastEndedHadSomething;
    for (char c : bytes) {
        if (!m_insideFrame && c == EndOfMessage) {
            m_controllerMarksEnds = true;
            lastEndedHadSomething = messageEnded();
            continue;
        }
        if (uint8_t(c) == Frame::End)
            m_insideFrame = !m_insideFrame;
        else
            m_insideFrame = true; // a frame's byte, even if its END was missed
        ++m_messageBytes;
        frames.append(c);
    }
    // A controller that does not mark the ends: the message ends with EOI on the END byte
    // that closes its last frame, and it is the only read asked.
    if (!m_controllerMarksEnds && m_readsAsked > 0 && !m_insideFrame && uint8_t(bytes.back()) == Frame::End)
        lastEndedHadSomething = messageEnded();
    if (m_readsAsked > 0)
        m_readTimeout.start(LinkTimeouts::Gpib::TalkerSilence + LinkTimeouts::Gpib::ReadMargin);
    else
        m_readTimeout.stop();
    if (!frames.isEmpty())
        emit received(frames);
    // The link has taken the frames: it may have closed the channel, or no longer wait.
    if (lastEndedHadSomething && m_state == State::Open && m_readsAsked == 0)
        askAgain(*lastEndedHadSomething);
}

bool GpibControllerTransport::messageEnded()
{
    const bool hadSomething = m_messageBytes > EmptyMessageBytes;
    m_everAnswered = true;
    m_readsAsked = std::max(0, m_readsAsked - 1);
    m_messageBytes = 0;
    return hadSomething;
}

void GpibControllerTransport::askAgain(bool lastHadSomething)
{
    if (lastHadSomething)
        askToTalk(); // there may be more
    else if (m_awaiting)
        m_nextPoll.start(LinkTimeouts::Gpib::PollInterval); // nothing yet: ask again shortly
}

void GpibControllerTransport::onReadTimeout()
{
    // No talker answered the oldest read: the controller gave up on it without a byte.
    m_readsAsked = std::max(0, m_readsAsked - 1);
    m_insideFrame = false;
    m_messageBytes = 0;
    if (m_readsAsked > 0)
        m_readTimeout.start(LinkTimeouts::Gpib::TalkerSilence + LinkTimeouts::Gpib::ReadMargin);
    else
        askToTalk();
}

QString GpibControllerTransport::silenceReason(int attempts) const
{
    if (!m_everAnswered)
        return QStringLiteral("no instrument answers at GPIB address %1 behind %2; check the address set on the instrument, "
                              "the address in %3 and the GPIB cable")
            .arg(m_target.address)
            .arg(m_target.describe(), QLatin1String("TROVEX_PORTS"));
    return QStringLiteral("the instrument at GPIB address %1 stopped answering after %2 attempts; check that it is "
                          "switched on and waiting for the update, and the GPIB cable")
        .arg(m_target.address)
        .arg(attempts);
}

void GpibControllerTransport::lost(const QString &reason)
{
    if (m_state == State::Closed)
        return;
    close();
    reportFailed(reason);
}
