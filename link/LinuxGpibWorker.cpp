#include "link/LinuxGpibWorker.h"

#include "link/Frame.h"
#include "link/LinkTimeouts.h"

#include <dlfcn.h>

namespace {
// From linux-gpib's ib.h: status bits, error codes and timeout indices.
constexpr int StatusError = 0x8000;
constexpr int NoListener = 2;    // ENOL
constexpr int Aborted = 6;       // EABO: the read or write timed out
constexpr int NoBoard = 7;       // ENEB
constexpr int Timeout300ms = 10; // T300ms, the index of LinkTimeouts::Gpib::TalkerSilence
constexpr int AssertEoi = 1;
constexpr int ReadBytes = Frame::MaxPayload * 2 + 16; // a stuffed frame and more
static_assert(LinkTimeouts::Gpib::TalkerSilence == 300);
// A talker's message that says "nothing for you": an empty frame.
constexpr int EmptyMessageBytes = 2;
} // namespace

struct LinuxGpibWorker::Library {
    void *handle = nullptr;
    int (*ibdev)(int, int, int, int, int, int) = nullptr;
    int (*ibwrt)(int, const void *, long) = nullptr;
    int (*ibrd)(int, void *, long) = nullptr;
    int (*ibtmo)(int, int) = nullptr;
    int (*ibonl)(int, int) = nullptr;
    int *ibsta = nullptr;
    int *iberr = nullptr;
    long *ibcntl = nullptr;

    ~Library() { dlclose(handle); }
};

LinuxGpibWorker::LinuxGpibWorker(const GpibTarget &target, const QString &library)
    : m_target(target), m_libraryName(library)
{
    m_poll.setSingleShot(true);
    connect(&m_poll, &QTimer::timeout, this, &LinuxGpibWorker::readOnce);
}

LinuxGpibWorker::~LinuxGpibWorker()
{
    closeDevice();
}

bool LinuxGpibWorker::loadLibrary(QString *error)
{
    void *handle = dlopen(m_libraryName.toLocal8Bit().constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        *error = QStringLiteral("linux-gpib is not installed (%1 cannot be loaded); install it, or reach the instrument "
                                "through a \"++\" controller in TROVEX_PORTS")
                     .arg(m_libraryName);
        return false;
    }
    auto library = std::make_unique<Library>();
    library->handle = handle;
    const auto symbol = [&](auto &target, const char *name) {
        target = reinterpret_cast<std::remove_reference_t<decltype(target)>>(dlsym(handle, name));
        return target != nullptr;
    };
    if (!(symbol(library->ibdev, "ibdev") && symbol(library->ibwrt, "ibwrt") && symbol(library->ibrd, "ibrd")
          && symbol(library->ibtmo, "ibtmo") && symbol(library->ibonl, "ibonl") && symbol(library->ibsta, "ibsta")
          && symbol(library->iberr, "iberr") && symbol(library->ibcntl, "ibcntl"))) {
        *error = QStringLiteral("%1 is not the linux-gpib library this program knows (a function is missing)").arg(m_libraryName);
        return false;
    }
    m_library = std::move(library);
    return true;
}

void LinuxGpibWorker::open()
{
    QString error;
    if (!loadLibrary(&error)) {
        emit failed(error);
        return;
    }
    m_descriptor = m_library->ibdev(m_target.board, m_target.address, 0, Timeout300ms, AssertEoi, 0);
    if (m_descriptor < 0) {
        emit failed(lastError("ibdev"));
        return;
    }
    emit opened();
}

QString LinuxGpibWorker::lastError(const char *call) const
{
    switch (*m_library->iberr) {
    case NoListener:
        return QStringLiteral("no instrument listens at GPIB address %1 on board %2; check the address and the GPIB cable")
            .arg(m_target.address)
            .arg(m_target.board);
    case NoBoard:
        return QStringLiteral("GPIB board %1 is not there; check gpib.conf and that the board's driver is loaded").arg(m_target.board);
    case Aborted:
        return QStringLiteral("the GPIB bus timed out at address %1; check that the instrument is switched on").arg(m_target.address);
    default:
        return QStringLiteral("linux-gpib's %1 failed (iberr %2)").arg(QLatin1String(call)).arg(*m_library->iberr);
    }
}

void LinuxGpibWorker::write(const QByteArray &bytes)
{
    if (m_descriptor < 0)
        return;
    if (m_library->ibwrt(m_descriptor, bytes.constData(), long(bytes.size())) & StatusError) {
        fail(lastError("ibwrt"));
        return;
    }
    if (m_reading)
        m_poll.start(0); // the answers to earlier requests may be there by now
}

void LinuxGpibWorker::setReading(bool reading)
{
    m_reading = reading && m_descriptor >= 0;
    if (m_reading)
        m_poll.start(0);
    else
        m_poll.stop();
}

void LinuxGpibWorker::readOnce()
{
    QByteArray buffer(ReadBytes, '\0');
    const int status = m_library->ibrd(m_descriptor, buffer.data(), long(buffer.size()));
    if (status & StatusError && *m_library->iberr != Aborted) {
        fail(lastError("ibrd"));
        return;
    } // else nobody talked within the timeout: the link's own wait decides
    buffer.truncate(status & StatusError ? 0 : qsizetype(*m_library->ibcntl));
    if (!buffer.isEmpty())
        emit received(buffer);
    // It had something: there may be more; nothing yet: ask again shortly.
    if (m_reading)
        m_poll.start(buffer.size() > EmptyMessageBytes ? 0 : LinkTimeouts::Gpib::PollInterval);
}

void LinuxGpibWorker::fail(const QString &reason)
{
    closeDevice();
    emit failed(reason);
}

void LinuxGpibWorker::closeDevice()
{
    m_reading = false;
    m_poll.stop();
    if (m_descriptor >= 0)
        m_library->ibonl(m_descriptor, 0); // gives the device descriptor back
    m_descriptor = -1;
}
