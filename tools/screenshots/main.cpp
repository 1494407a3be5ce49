// varnolt-screenshots OUTDIR: renders every step of the wizard to PNG, with the demo
// package and a scripted instrument, for the README: a whole update, then one whose erase
// fails, one cancelled while it programs, and one whose port does not open, with the port
// doctor's message.
#include "engine/AnswerCodes.h"
#include "tests/support/ScriptedAppLayer.h"
#include "tools/demo-package/DemoPackage.h"
#include "tools/package-builder/PackageBuilder.h"
#include "wizard/HelpViewer.h"
#include "wizard/MessageBoxPrompt.h"
#include "wizard/WizardPrompt.h"
#include "wizard/frmWizard.h"

#include <QApplication>
#include <QDir>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <cstdio>
#include <functional>

namespace {
// Answers every question itself; once photographing is on, shows a notice in a real message
// box, photographs it and closes it.
class QuietPrompt : public WizardPrompt {
public:
    explicit QuietPrompt(QWidget *parent) : m_boxes(parent) {}
    bool askYesNo(const QString &, const QString &) override { return true; }
    void showMessage(const QString &title, const QString &text) override
    {
        if (photograph.isEmpty())
            return;
        QTimer::singleShot(0, [this] {
            if (auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
                box->grab().save(photograph);
                box->accept();
            }
        });
        m_boxes.showMessage(title, text);
    }
    bool askOkCancel(const QString &, const QString &) override { return true; }

    QString photograph; // where the next notice's picture goes; "" for none

private:
    MessageBoxPrompt m_boxes;
};
class NoHelp : public HelpViewer {
public:
    bool open(const QString &, const QString &) override { return true; }
    void close(const QString &) override {}
};
// The request of the first run that is held back while the Upload step is photographed: a
// program block halfway through the main image.
constexpr int PhotographedRequest = 180;
// Where the instrument refuses the erase in the second run.
constexpr int32_t RefusedEraseAddress = 0x20000;
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

    QuietPrompt prompt(nullptr);
    NoHelp help;
    frmWizard *shown = nullptr;
    const auto shoot = [&](const char *name) { shown->grab().save(out.filePath(QLatin1String(name))); };
    // How each run's instrument behaves: it gets the run's layer before the first request.
    std::function<void(ScriptedAppLayer &)> instrument = [&](ScriptedAppLayer &layer) {
        for (int i = 0; i < PhotographedRequest; ++i)
            layer.queueReply(ScriptedAppLayer::Reply{});
        layer.queueReply(ScriptedAppLayer::silence());
        QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&layer, &shoot] {
            QTimer::singleShot(0, &layer, [&layer, &shoot] {
                shoot("3-upload.png");
                ScriptedAppLayer::Reply block;
                block.status = AnswerStatus::Ok;
                layer.applyNow(block);
                emit layer.Trovex_Response(ResponseId::Program);
            });
        });
    };
    WizardServices services;
    services.prompt = &prompt;
    services.help = &help;
    services.appLayerFactory = [&](const EngineWait &wait) {
        auto layer = std::make_unique<ScriptedAppLayer>(wait);
        instrument(*layer);
        return layer;
    };
    frmWizard wizard(std::move(services));
    shown = &wizard;
    wizard.load({QStringLiteral("/ADV_DISPLAY")});
    const auto click = [&](frmWizard::Nav button) { wizard.navButton(button).click(); };
    shoot("0-select-firmware.png");
    click(frmWizard::NextButton);
    shoot("1-introduction.png");
    click(frmWizard::NextButton);
    shoot("2-settings.png");
    click(frmWizard::NextButton);
    shoot("4-finished.png");

    instrument = [](ScriptedAppLayer &layer) {
        layer.holdAt(QStringLiteral("FlashDelete"));
        QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer, [&layer] {
            ScriptedAppLayer::Reply refused;
            refused.status = AnswerStatus::EraseFailed;
            refused.resultAddress = RefusedEraseAddress;
            layer.applyNow(refused);
            QTimer::singleShot(0, &layer, [&layer] { emit layer.Trovex_Response(ResponseId::Erase); });
        });
    };
    click(frmWizard::BackButton);
    click(frmWizard::BackButton);
    click(frmWizard::NextButton);
    shoot("5-failed.png");

    instrument = [&](ScriptedAppLayer &layer) {
        layer.holdAt(QStringLiteral("ProgramBlock"));
        QObject::connect(&layer, &ScriptedAppLayer::requestWithheld, &layer,
                         [&] { QTimer::singleShot(0, &wizard, [&] { click(frmWizard::CancelButton); }); });
    };
    click(frmWizard::BackButton);
    click(frmWizard::BackButton);
    click(frmWizard::NextButton);
    shoot("6-cancelled.png");

    // A port that does not open: COM1 on a USB adapter that is not plugged in.
    qputenv("TROVEX_PORTS", "COM1=/dev/ttyUSB0");
    instrument = [](ScriptedAppLayer &layer) {
        layer.setOpenErrorCode(1);
        layer.setErrorText(QStringLiteral("the serial device /dev/ttyUSB0 does not exist; check the port name and the "
                                          "TROVEX_PORTS map"));
    };
    prompt.photograph = out.filePath(QStringLiteral("7-port-doctor.png"));
    click(frmWizard::BackButton);
    click(frmWizard::BackButton);
    click(frmWizard::NextButton);
    std::printf("screenshots written to %s\n", qPrintable(out.path()));
    return 0;
}
