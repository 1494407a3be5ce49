#pragma once
// The instrument on a GPIB bus through a board of the linux-gpib library. The library is
// loaded when a channel opens (dlopen of libgpib.so.0), so the program builds and runs on
// machines without it. Frames are written with ibwrt (EOI on the last byte); while the link
// waits for answers the transport reads with ibrd. Those calls block, so the device's timeout
// is kept short: our instruments answer a read at once (an empty frame when they have
// nothing), and only a missing instrument makes a read wait the whole timeout.
#include "link/GpibTarget.h"
#include "link/Transport.h"

#include <QTimer>

class LinuxGpibTransport : public Transport {
    Q_OBJECT
public:
    // library: the shared library to load, replaceable for tests.
    explicit LinuxGpibTransport(const GpibTarget &target, QString library = QStringLiteral("libgpib.so.0"),
                                QObject *parent = nullptr);
    ~LinuxGpibTransport() override;

    bool open(QString *error) override;
    void write(const QByteArray &bytes) override;
    void close() override;
    double wireTimeMs(int count) const override;
    void setAwaitingAnswers(bool awaiting) override;
    QString silenceReason(int attempts) const override;

private:
    struct Library;

    bool loadLibrary(QString *error);
    void readOnce();
    // The library's error after a failed call, as a sentence.
    QString lastError(const char *call) const;
    void lost(const QString &reason);

    GpibTarget m_target;
    QString m_libraryName;
    Library *m_library = nullptr;
    int m_descriptor = -1;
    QTimer m_poll;
    bool m_everAnswered = false;
};
