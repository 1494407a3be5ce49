#include "link/LinuxGpibTransport.h"

#include "link/LinkTimeouts.h"
#include "link/LinuxGpibWorker.h"

#include <QCoreApplication>

namespace {
// A talker's message that says "nothing for you": an empty frame.
constexpr int EmptyMessageBytes = 2;
} // namespace

LinuxGpibTransport::LinuxGpibTransport(const GpibTarget &target, QString library, QObject *parent)
    : Transport(parent), m_target(target), m_libraryName(std::move(library))
{
}

LinuxGpibTransport::~LinuxGpibTransport()
{
    close();
}

void LinuxGpibTransport::open()
{
    close();
    m_thread = std::make_unique<QThread>();
    m_worker = new LinuxGpibWorker(m_target, m_libraryName);
    m_worker->moveToThread(m_thread.get());
    connect(m_thread.get(), &QThread::finished, m_worker, &QObject::deleteLater);
    // Across threads: each arrives here as a queued call, from the event loop.
    connect(m_worker, &LinuxGpibWorker::opened, this, &Transport::opened);
    connect(m_worker, &LinuxGpibWorker::received, this, &LinuxGpibTransport::onReceived);
    connect(m_worker, &LinuxGpibWorker::failed, this, &Transport::failed);
    m_thread->start();
    QMetaObject::invokeMethod(m_worker, &LinuxGpibWorker::open, Qt::QueuedConnection);
}

void LinuxGpibTransport::write(const QByteArray &bytes)
{
    if (m_worker)
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, bytes] { worker->write(bytes); }, Qt::QueuedConnection);
}

void LinuxGpibTransport::setAwaitingAnswers(bool awaiting)
{
    if (m_worker)
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, awaiting] { worker->setReading(awaiting); },
                                  Qt::QueuedConnection);
}

void LinuxGpibTransport::onReceived(const QByteArray &bytes)
{
    if (bytes.size() > EmptyMessageBytes)
        m_everAnswered = true;
    emit received(bytes);
}

void LinuxGpibTransport::close()
{
    dropReports();
    if (!m_thread)
        return;
    m_worker->disconnect(this);
    m_worker = nullptr;
    m_thread->quit(); // after the library call on its way, if any
    if (!m_thread->wait(QDeadlineTimer(LinkTimeouts::Gpib::WorkerJoin))) {
        // A library call outlived the device's timeout: the thread ends, and goes, on its own.
        QThread *stuck = m_thread.release();
        connect(stuck, &QThread::finished, stuck, &QObject::deleteLater);
    }
    m_thread.reset();
    // What the worker said before it was disconnected and has not arrived yet is not wanted.
    QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
}

double LinuxGpibTransport::wireTimeMs(int count) const
{
    return LinkTimeouts::Gpib::wireTimeMs(count);
}

QString LinuxGpibTransport::silenceReason(int attempts) const
{
    if (!m_everAnswered)
        return QStringLiteral("no instrument answers at GPIB address %1 on board %2; check the address set on the "
                              "instrument, the address in TROVEX_PORTS and the GPIB cable")
            .arg(m_target.address)
            .arg(m_target.board);
    return QStringLiteral("the instrument at GPIB address %1 stopped answering after %2 attempts; check that it is "
                          "switched on and waiting for the update")
        .arg(m_target.address)
        .arg(attempts);
}
