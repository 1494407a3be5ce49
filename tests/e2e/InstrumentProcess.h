#pragma once
// The simulated instrument as a child process for end-to-end tests: started with its
// options, its pseudo-terminal's path read from its first line, stopped with SIGTERM so it
// writes its flash to the dump folder.
#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

class InstrumentProcess {
public:
    // Starts the instrument; flash chips and faults as its command line takes them.
    explicit InstrumentProcess(const QStringList &arguments);
    ~InstrumentProcess();

    bool started() const { return !m_device.isEmpty(); }
    QString device() const { return m_device; }
    // Stops it and returns the dump of the chip at name@base.
    QByteArray stopAndDump(const QString &chip, uint32_t base);
    void stop();

private:
    QProcess m_process;
    QTemporaryDir m_dumps;
    QString m_device;
};
