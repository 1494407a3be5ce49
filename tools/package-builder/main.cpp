// varnolt-mkpkg OUTPUT.KDPKG FOLDER [--comment TEXT]: packs every file of FOLDER into a
// firmware package.
#include "resources/VersionOption.h"
#include "tools/package-builder/PackageBuilder.h"

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>

int main(int argc, char **argv)
{
    if (VersionOption::answer(argc, argv, "varnolt-mkpkg"))
        return 0;
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    QString comment;
    const qsizetype flag = args.indexOf(QStringLiteral("--comment"));
    if (flag >= 0) {
        if (flag + 1 >= args.size()) {
            std::fprintf(stderr, "usage: varnolt-mkpkg OUTPUT.KDPKG FOLDER [--comment TEXT]\n");
            return 2;
        }
        comment = args.at(flag + 1);
        args.remove(flag, 2);
    }
    if (args.size() != 2) {
        std::fprintf(stderr, "usage: varnolt-mkpkg OUTPUT.KDPKG FOLDER [--comment TEXT]\n");
        return 2;
    }
    QString error;
    if (!PackageBuilder::fromFolder(args.at(1), args.at(0), comment, &error)) {
        std::fprintf(stderr, "varnolt-mkpkg: %s\n", qPrintable(error));
        return 1;
    }
    return 0;
}
