#pragma once
// A package built from a configuration text (with the images the tests name: TP.BIN 3000
// bytes, MAIN.BIN 1000, TEXT_EN.BIN 480, TEXT_DE.BIN 720, plus any extra members), handed to
// and loaded by an engine whose recording display forwards the selectors to it.
#include "tests/support/EngineFixture.h"
#include "tests/support/TestPackage.h"

#include <QMap>

// A package holding the configuration text and every image the tests name.
struct LoadedPackage {
    TestPackage package;
    EngineFixture f;
    explicit LoadedPackage(const QString &ini, bool wizard = true, const QMap<QString, QByteArray> &extra = {})
    {
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            package.member(it.key(), it.value());
        package.config(ini)
            .member(QStringLiteral("TP.BIN"), TestPackage::pattern(3000))
            .member(QStringLiteral("MAIN.BIN"), TestPackage::pattern(1000))
            .member(QStringLiteral("TEXT_EN.BIN"), TestPackage::pattern(480))
            .member(QStringLiteral("TEXT_DE.BIN"), TestPackage::pattern(720));
        f.engine.setPackage(package.write());
        f.display.onPortText = [this](const QString &port) { f.engine.setComPort(port.trimmed()); };
        f.display.onLanguageText = [this](const QString &lang) { f.engine.setFirmwareLanguage(lang.trimmed()); };
        if (wizard)
            f.enterWizardMode();
        f.engine.setFilename(QStringLiteral("KDCONFIG.INI"));
    }
    int code() const { return f.engine.QX_Error_GetLastError(); }
    QString message() const { return f.engine.QX_Error_GetLastErrorString(); }
    QStringList programFiles() const
    {
        QStringList names;
        for (const auto &p : f.engine.Programs)
            names << p.Filename();
        return names;
    }
};
