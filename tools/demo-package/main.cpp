// varnolt-demo-package FOLDER: writes the demo firmware package into FOLDER; its calibration
// read-back goes to CAL-M7.BIN in the folder the update runs in.
#include "tools/demo-package/DemoPackage.h"

#include <QCoreApplication>
#include <QDir>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: varnolt-demo-package FOLDER\n");
        return 2;
    }
    const QDir folder(QDir(QString::fromLocal8Bit(argv[1])).absolutePath());
    QDir().mkpath(folder.path());
    QString error;
    const QString path = DemoPackage::write(folder.path(), &error);
    if (path.isEmpty()) {
        std::fprintf(stderr, "varnolt-demo-package: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("%s\n", qPrintable(path));
    return 0;
}
