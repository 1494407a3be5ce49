#include "link/LinuxGpibTransport.h"

#include "link/Frame.h"
#include "link/GpibTimeouts.h"

#include <dlfcn.h>

namespace {
// From linux-gpib's ib.h: status bits, error codes and timeout indices.
constexpr int StatusError = 0x8000;
constexpr int NoListener = 2;   // ENOL
constexpr int Aborted = 6;      // EABO: the read or write timed out
constexpr int NoBoard = 7;      // ENEB
constexpr int Timeout300ms = 10; // T300ms
constexpr int AssertEoi = 1;
constexpr int ReadBytes = Frame::MaxPayload * 2 + 16; // a stuffed frame and more
} // namespace

struct LinuxGpibTransport::Library {
    void *handle = nullptr;
    int (*ibdev)(int, int, int, int, int, int) = nullptr;
    int (*ibwrt)(int, const void *, long) = nullptr;
    int (*ibrd)(int, void *, long) = nullptr;
    int (*ibtmo)(int, int) = nullptr;
    int (*ibonl)(int, int) = nullptr;
    int *ibsta = nullptr;
    int *iberr = nullptr;
    long *ibcntl = nullptr;
};

LinuxGpibTransport::LinuxGpibTransport(const GpibTarget &target, QString library, QObject *parent)
    : Transport(parent), m_target(target), m_libraryName(std::move(library))
{
    m_poll.setInterval(GpibTimeouts::PollInterval);
    connect(&m_poll, &QTimer::timeout, this, &LinuxGpibTransport::readOnce);
}

LinuxGpibTransport::~LinuxGpibTransport()
{
    close();
    if (m_library && m_library->handle)
        dlclose(m_library->handle);
    delete m_library;
}

bool LinuxGpibTransport::loadLibrary(QString *error)
{
    if (m_library)
        return true;
    void *handle = dlopen(m_libraryName.toLocal8Bit().constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        *error = QStringLiteral("linux-gpib is not installed (%1 cannot be loaded); install it, or reach the instrument "
                                "through a \"++\" controller in TROVEX_PORTS")
                     .arg(m_libraryName);
        return false;
    }
    auto *library = new Library;
    library->handle = handle;
    const auto symbol = [&](auto &target, const char *name) {
        target = reinterpret_cast<std::remove_reference_t<decltype(target)>>(dlsym(handle, name));
        return target != nullptr;
    };
    if (!(symbol(library->ibdev, "ibdev") && symbol(library->ibwrt, "ibwrt") && symbol(library->ibrd, "ibrd")
          && symbol(library->ibtmo, "ibtmo") && symbol(library->ibonl, "ibonl") && symbol(library->ibsta, "ibsta")
          && symbol(library->iberr, "iberr") && symbol(library->ibcntl, "ibcntl"))) {
        *error = QStringLiteral("%1 is not the linux-gpib library this program knows (a function is missing)").arg(m_libraryName);
        dlclose(handle);
        delete library;
        return false;
    }
    m_library = library;
    return true;
}

bool LinuxGpibTransport::open(QString *error)
{
    if (!loadLibrary(error))
        return false;
    m_descriptor = m_library->ibdev(m_target.board, m_target.address, 0, Timeout300ms, AssertEoi, 0);
    if (m_descriptor < 0) {
        *error = lastError("ibdev");
        return false;
    }
    return true;
}

QString LinuxGpibTransport::lastError(const char *call) const
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

void LinuxGpibTransport::write(const QByteArray &bytes)
{
    if (m_descriptor < 0)
        return;
    if (m_library->ibwrt(m_descriptor, bytes.constData(), long(bytes.size())) & StatusError)
        lost(lastError("ibwrt"));
}

void LinuxGpibTransport::readOnce()
{
    if (m_descriptor < 0)
        return;
    QByteArray buffer(ReadBytes, '\0');
    const int status = m_library->ibrd(m_descriptor, buffer.data(), long(buffer.size()));
    if (status & StatusError) {
        if (*m_library->iberr == Aborted)
            return; // nobody talked within the timeout: the link's own wait decides
        lost(lastError("ibrd"));
        return;
    }
    buffer.truncate(qsizetype(*m_library->ibcntl));
    if (buffer.size() > 2)
        m_everAnswered = true;
    emit received(buffer);
}

void LinuxGpibTransport::close()
{
    m_poll.stop();
    if (m_descriptor >= 0 && m_library)
        m_library->ibonl(m_descriptor, 0); // gives the device descriptor back
    m_descriptor = -1;
}

double LinuxGpibTransport::wireTimeMs(int count) const
{
    return GpibTimeouts::wireTimeMs(count);
}

void LinuxGpibTransport::setAwaitingAnswers(bool awaiting)
{
    if (awaiting && m_descriptor >= 0)
        m_poll.start();
    else
        m_poll.stop();
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

void LinuxGpibTransport::lost(const QString &reason)
{
    close();
    emit failed(reason);
}
