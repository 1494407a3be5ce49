#include "tests/e2e/InstrumentProcess.h"

#include <QFile>
#include <csignal>

InstrumentProcess::InstrumentProcess(const QStringList &arguments)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(QStringLiteral(VARNOLT_INSTRUMENT), arguments + QStringList{QStringLiteral("--dump"), m_dumps.path()});
    if (m_process.waitForStarted() && m_process.waitForReadyRead(5000))
        m_device = QString::fromLocal8Bit(m_process.readLine()).trimmed();
}

InstrumentProcess::~InstrumentProcess()
{
    stop();
}

void InstrumentProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    ::kill(static_cast<pid_t>(m_process.processId()), SIGTERM);
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished();
}

QByteArray InstrumentProcess::stopAndDump(const QString &chip, uint32_t base)
{
    stop();
    QFile dump(m_dumps.filePath(QStringLiteral("%1@0x%2.bin").arg(chip).arg(base, 0, 16)));
    return dump.open(QIODevice::ReadOnly) ? dump.readAll() : QByteArray();
}
