// varnolt-screenshots OUTDIR: renders every step of the wizard to PNG, with the demo
// package and a scripted instrument, for the README.
#include "tests/support/ScriptedAppLayer.h"
#include "tools/demo-package/DemoPackage.h"
#include "tools/package-builder/PackageBuilder.h"
#include "wizard/HelpViewer.h"
#include "wizard/WizardPrompt.h"
#include "wizard/frmWizard.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>

namespace {
class QuietPrompt : public WizardPrompt {
public:
    bool askYesNo(const QString &, const QString &) override { return true; }
    void showMessage(const QString &, const QString &) override {}
    bool askOkCancel(const QString &, const QString &) override { return true; }
};
class NoHelp : public HelpViewer {
public:
    void open(const QString &, const QString &) override {}
    void close(const QString &) override {}
};
// The request of the run that is held back while the Upload step is photographed: a
// program block halfway through the main image.
constexpr int PhotographedRequest = 180;
} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: varnolt-screenshots OUTDIR\n");
        return 2;
    }
    const QDir out(QDir(QString::fromLocal8Bit(argv[1])).absolutePath());
    QDir().mkpath(out.path());
    QTemporaryDir folder;
    QDir::setCurrent(folder.path());
    QString error;
    if (DemoPackage::write(folder.path(), &error).isEmpty()) {
        std::fprintf(stderr, "varnolt-screenshots: %s\n", qPrintable(error));
        return 1;
    }
    PackageBuilder older;
    older.setComment(QStringLiteral("Model 7 Signal Analyser - Firmware 2.06"));
    older.addMember(QStringLiteral("KDCONFIG.INI"), "[HOST]\r\n");
    older.write(folder.filePath(QStringLiteral("Model7-Firmware-2.06.KDPKG")), &error);

    QuietPrompt prompt;
    NoHelp help;
    frmWizard *shown = nullptr;
    WizardServices services;
    services.prompt = &prompt;
    services.help = &help;
    services.appLayerFactory = [&](const EngineWait &wait) {
        auto layer = std::make_unique<ScriptedAppLayer>(wait);
        ScriptedAppLayer *raw = layer.get();
        for (int i = 0; i < PhotographedRequest; ++i)
            layer->queueReply(ScriptedAppLayer::Reply{});
        layer->queueReply(ScriptedAppLayer::silence());
        QObject::connect(raw, &ScriptedAppLayer::requestWithheld, raw, [raw, &out, &shown] {
            QTimer::singleShot(0, raw, [raw, &out, &shown] {
                shown->grab().save(out.filePath(QStringLiteral("3-upload.png")));
                ScriptedAppLayer::Reply block;
                block.status = 66;
                raw->applyNow(block);
                emit raw->Trovex_Response(165);
            });
        });
        return layer;
    };
    frmWizard wizard(std::move(services));
    shown = &wizard;
    wizard.load(QStringLiteral("/ADV_DISPLAY"));
    const auto shoot = [&](const char *name) { wizard.grab().save(out.filePath(QLatin1String(name))); };
    shoot("0-select-firmware.png");
    wizard.navButton(frmWizard::NextButton).click();
    shoot("1-introduction.png");
    wizard.navButton(frmWizard::NextButton).click();
    shoot("2-settings.png");
    wizard.navButton(frmWizard::NextButton).click();
    shoot("4-finished.png");
    std::printf("screenshots written to %s\n", qPrintable(out.path()));
    return 0;
}
