#pragma once
// The command-line switches, each introduced by "/": TRANSFERONLY, AUTOSTART, PORTname,
// ADV_DISPLAY, FIRMWARE_LANGUAGEname and Fpath. Switches are case-sensitive and a value
// follows its keyword directly. An unknown switch (or an F naming no existing file) is
// reported through the last-error interface as code 14; parsing goes on to the end and the
// last invalid part is the one reported.
//
// Each program argument is read on its own, so a switch never runs into the next argument.
// Inside one argument a "/" starts the next switch, as it always did, except in the path of
// the F switch, which runs to the end of its argument: /F/home/me/pkg.KDPKG names an
// absolute path. The text before an argument's first "/" is ignored.
#include "config/LastErrorOwner.h"

#include <QString>
#include <QStringList>

class QX_CommandLine : public LastErrorOwner {
public:
    // Stores the program's arguments and parses them; flags already set stay set.
    void setCommandLine(const QStringList &arguments);

    bool Filename() const { return m_filename; } // the F switch named an existing file
    QString FilePath() const { return m_filePath; }
    bool AutoStart() const { return m_autoStart; }
    bool TransferOnly() const { return m_transferOnly; }
    bool PortSet() const { return m_portSet; }
    QString Port() const { return m_port; }
    bool Advanced() const { return m_advanced; }
    bool FirmwareLanguageSet() const { return m_firmwareLanguageSet; }
    QString FirmwareLanguage() const { return m_firmwareLanguage; }
    QStringList CommandLine() const { return m_commandLine; }

private:
    void parseArgument(const QString &argument);
    void parsePart(const QString &part);

    QStringList m_commandLine;
    QString m_filePath;
    bool m_filename = false;
    bool m_transferOnly = false;
    bool m_autoStart = false;
    QString m_port;
    bool m_portSet = false;
    bool m_advanced = false;
    QString m_firmwareLanguage;
    bool m_firmwareLanguageSet = false;
};
