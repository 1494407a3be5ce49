// varnolt: the firmware update wizard.
#include "resources/VersionOption.h"
#include "trovex/Trovex.h"
#include "wizard/frmWizard.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>

int main(int argc, char **argv)
{
    // Answered before the window system is needed: it works where there is no display.
    if (VersionOption::answer(argc, argv, "varnolt"))
        return 0;
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnolt"));
    // The desktop entry and the icon a desktop shows for the window.
    QGuiApplication::setDesktopFileName(QStringLiteral("org.varnolt.Varnolt"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("org.varnolt.Varnolt")));
    WizardServices services;
    services.appLayerFactory = [](const EngineWait &wait) { return std::make_unique<Trovex>(wait); };
    frmWizard wizard(std::move(services));
    const QStringList arguments = QApplication::arguments().mid(1);
    QTimer::singleShot(0, &wizard, [&] { wizard.load(arguments); });
    return app.exec();
}
