#pragma once
// The log file of --log: every line stamped with the time, written through at once, so that
// a run that ends badly still leaves everything it logged.
#include <QFile>
#include <QString>

class RunLog {
public:
    // Appends to path; false with a reason.
    bool open(const QString &path, QString *error);
    bool isOpen() const { return m_file.isOpen(); }
    // Each line of text (CR LF or LF) becomes a stamped line of the file.
    void write(const QString &text);

private:
    QFile m_file;
};
