// varnolt: the firmware update wizard.
#include "trovex/Trovex.h"
#include "wizard/frmWizard.h"

#include <QApplication>
#include <QTimer>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnolt"));
    WizardServices services;
    services.appLayerFactory = [](const EngineWait &wait) { return std::make_unique<Trovex>(wait); };
    frmWizard wizard(std::move(services));
    const QStringList arguments = QApplication::arguments().mid(1);
    QTimer::singleShot(0, &wizard, [&] { wizard.load(arguments); });
    return app.exec();
}
