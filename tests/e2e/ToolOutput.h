#pragma once
// What the end-to-end tests read from the tools they run: files byte for byte, the JSON lines
// of --json (every line one object, stamped with the time and its offset from UTC), and one
// finished run of varnolt-cli.
#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QRegularExpression>
#include <QString>

inline QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline QString sha256(const QString &path)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytesOf(path), QCryptographicHash::Sha256).toHex());
}

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Log files and JSON carry the time with its offset from UTC.
inline const QRegularExpression Stamp(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}(Z|[+-]\\d\\d:\\d\\d)$"));

// The objects of --json output; none when a line is not one stamped object.
inline QList<QJsonObject> jsonLines(const QByteArray &output)
{
    QList<QJsonObject> objects;
    for (const QByteArray &line : output.split('\n')) {
        if (line.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(line, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject()
            || !Stamp.match(document.object().value(QStringLiteral("time")).toString()).hasMatch())
            return {}; // every line must be one object, stamped
        objects << document.object();
    }
    return objects;
}

// The "line" of every log object of --json output, in order.
inline QStringList logLinesOf(const QList<QJsonObject> &objects)
{
    QStringList lines;
    for (const QJsonObject &object : objects)
        if (object.value(QStringLiteral("type")).toString() == QStringLiteral("log"))
            lines << object.value(QStringLiteral("line")).toString();
    return lines;
}

// One finished run of the tool.
struct CliRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QString text() const { return QString::fromUtf8(out); }
    QString errors() const { return QString::fromUtf8(err); }
};

// Waits up to limitMs for a started tool to end (kills it then) and takes what it said.
inline CliRun finished(QProcess &tool, int limitMs)
{
    CliRun result;
    if (!tool.waitForFinished(limitMs))
        tool.kill();
    tool.waitForFinished();
    result.exitCode = tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
    result.out = tool.readAllStandardOutput();
    result.err = tool.readAllStandardError();
    return result;
}
