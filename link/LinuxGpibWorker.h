#pragma once
// The half of the linux-gpib transport that calls the library. Its calls block (a read waits
// up to the device's timeout when no instrument talks), so the worker lives on a thread of its
// own: it loads the library, owns the device descriptor, writes, reads while it is asked to,
// and says what happened through its signals, which reach the transport on its own thread as
// queued calls. Destroyed on its thread, it gives the descriptor back and unloads the library.
#include "link/GpibTarget.h"

#include <QObject>
#include <QTimer>
#include <memory>

class LinuxGpibWorker : public QObject {
    Q_OBJECT
public:
    LinuxGpibWorker(const GpibTarget &target, const QString &library);
    ~LinuxGpibWorker() override;

    // Invoked from the transport's thread; each runs on the worker's.
    void open();
    void write(const QByteArray &bytes);
    void setReading(bool reading);

signals:
    void opened();
    void received(const QByteArray &bytes);
    void failed(const QString &reason);

private:
    struct Library;

    bool loadLibrary(QString *error);
    void readOnce();
    // The library's error after a failed call, as a sentence.
    QString lastError(const char *call) const;
    void fail(const QString &reason);
    void closeDevice();

    GpibTarget m_target;
    QString m_libraryName;
    std::unique_ptr<Library> m_library;
    int m_descriptor = -1;
    bool m_reading = false;
    // The next read: at once behind a request or a read that brought frames, after
    // LinkTimeouts::Gpib::PollInterval behind one that brought none. A child, so that it
    // moves to the worker's thread with it.
    QTimer m_poll{this};
};
