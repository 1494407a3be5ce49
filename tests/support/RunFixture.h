#pragma once
// A loaded package ready for a run in a temporary working folder, where its read-back files
// go, with a fixed clock and helpers to read the run's requests and log.
#include "tests/support/LoadedPackage.h"
#include "tests/support/TemporaryWorkingFolder.h"

#include <algorithm>

struct RunFixture {
    TemporaryWorkingFolder outDir;
    std::unique_ptr<LoadedPackage> loaded;
    EngineFixture *f = nullptr;
    double startSecond = 100.0;
    double endSecond = 100.0;

    explicit RunFixture(const QString &ini, bool wizard = true, const QMap<QString, QByteArray> &extra = {})
    {
        loaded = std::make_unique<LoadedPackage>(ini, wizard, extra);
        f = &loaded->f;
        bool first = true;
        f->engine.setClock({[] { return int64_t(0); },
                            [this, first]() mutable {
                                const double now = first ? startSecond : endSecond;
                                first = false;
                                return now;
                            }});
    }
    QString outPath(const QString &name) const { return outDir.filePath(name); }

    // Requests (everything but the getters and the hints) with their arguments, byte
    // buffers as their size.
    QStringList requests() const
    {
        QStringList out;
        if (!f->calls)
            return out;
        for (const auto &call : *f->calls) {
            if (call.name.startsWith(QStringLiteral("Get")) || call.name.startsWith(QStringLiteral("Announce")))
                continue;
            QStringList args;
            for (const QVariant &arg : call.args)
                args << (arg.typeId() == QMetaType::QByteArray ? QStringLiteral("%1 bytes").arg(arg.toByteArray().size())
                                                               : arg.toString());
            out << call.name + QLatin1Char('(') + args.join(QLatin1Char(',')) + QLatin1Char(')');
        }
        return out;
    }
    // The log oldest line first.
    QStringList log() const
    {
        QStringList lines = f->display.log;
        std::reverse(lines.begin(), lines.end());
        return lines;
    }
};
