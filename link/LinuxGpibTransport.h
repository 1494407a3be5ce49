#pragma once
// The instrument on a GPIB bus through a board of the linux-gpib library. The library is
// loaded when a channel opens (dlopen of libgpib.so.0), so the program builds and runs on
// machines without it. Frames are written with ibwrt (EOI on the last byte); while the link
// waits for answers the transport reads with ibrd. Those calls block, so they all run on a
// worker thread (LinuxGpibWorker) and the program's own thread never waits in the library:
// only closing waits for the worker to end, at most LinkTimeouts::Gpib::WorkerJoin.
#include "link/GpibTarget.h"
#include "link/Transport.h"

#include <QThread>
#include <memory>

class LinuxGpibWorker;

class LinuxGpibTransport : public Transport {
    Q_OBJECT
public:
    // library: the shared library to load, replaceable for tests.
    explicit LinuxGpibTransport(const GpibTarget &target, QString library = QStringLiteral("libgpib.so.0"),
                                QObject *parent = nullptr);
    ~LinuxGpibTransport() override;

    void open() override;
    void write(const QByteArray &bytes) override;
    void close() override;
    double wireTimeMs(int count) const override;
    void setAwaitingAnswers(bool awaiting) override;
    QString silenceReason(int attempts) const override;

private:
    void onReceived(const QByteArray &bytes);

    GpibTarget m_target;
    QString m_libraryName;
    std::unique_ptr<QThread> m_thread;
    LinuxGpibWorker *m_worker = nullptr; // lives on m_thread, which deletes it as it ends
    bool m_everAnswered = false;
};
