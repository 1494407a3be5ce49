#include "cli/DoctorCommand.h"

#include "cli/ExitStatus.h"
#include "doctor/DoctorText.h"
#include "doctor/LoopbackTest.h"
#include "doctor/PortDoctor.h"

#include <QCoreApplication>
#include <QTextStream>
#include <algorithm>

namespace DoctorCommand {
namespace {
const QString Usage = QStringLiteral("usage: varnolt-cli doctor [PORT...] [--loopback]\n");

QString rateLine(const LoopbackTest::RateResult &result)
{
    const QString rate = QStringLiteral("    %1 baud: ").arg(result.baud, 7);
    if (!result.failure.isEmpty())
        return rate + result.failure;
    if (result.returned == 0)
        return rate + QStringLiteral("nothing came back");
    if (result.passed())
        return rate + QStringLiteral("all %1 bytes came back").arg(result.sent);
    return rate + QStringLiteral("%1 of %2 bytes came back, %3 of them changed").arg(result.returned).arg(result.sent).arg(result.changed);
}

QString verdict(const QList<LoopbackTest::RateResult> &results, int highestRate)
{
    if (results.isEmpty())
        return QStringLiteral("  The port takes no rate of %1 baud or more.").arg(LoopbackTest::LowestRate);
    if (results.size() == 1 && results.first().returned == 0)
        return QStringLiteral("  Nothing came back: is TX bridged to RX (pins 2 and 3 of a 9-pin connector)?");
    int good = 0;
    for (const LoopbackTest::RateResult &result : results) {
        if (!result.passed())
            break;
        good = result.baud;
    }
    if (good == highestRate)
        return QStringLiteral("  Every rate up to %1 baud carries the bytes unchanged.").arg(highestRate);
    if (good == 0)
        return QStringLiteral("  Bytes are lost or changed from the lowest rate on: check the cable and the plug.");
    return QStringLiteral("  Bytes come back unchanged up to %1 baud only: the adapter or the cable does not carry the "
                          "rates above.")
        .arg(good);
}

// Runs the byte test on the event loop; true when every rate passed.
bool loopback(const PortDiagnosis &diagnosis, QTextStream &out)
{
    out << "  Loopback test (TX bridged to RX):\n";
    if (!diagnosis.findings.isEmpty() || diagnosis.highestRate == 0) {
        out << "    not run: the port does not open as it is\n";
        return false;
    }
    out.flush();
    LoopbackTest test(diagnosis.device, diagnosis.highestRate);
    QObject::connect(&test, &LoopbackTest::rateTested, [&out](const LoopbackTest::RateResult &result) {
        out << rateLine(result) << '\n';
        out.flush();
    });
    QObject::connect(&test, &LoopbackTest::finished, QCoreApplication::instance(), &QCoreApplication::quit,
                     Qt::QueuedConnection);
    test.start();
    QCoreApplication::exec();
    const QList<LoopbackTest::RateResult> results = test.results();
    out << verdict(results, diagnosis.highestRate) << '\n';
    return !results.isEmpty() && std::all_of(results.cbegin(), results.cend(), [](const auto &r) { return r.passed(); })
           && results.last().baud == diagnosis.highestRate;
}
} // namespace

int run(const QStringList &arguments)
{
    QStringList ports;
    bool withLoopback = false;
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("--loopback")) {
            withLoopback = true;
        } else if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
            QTextStream(stdout) << Usage;
            return ExitStatus::Success;
        } else if (argument.startsWith(QLatin1Char('-'))) {
            QTextStream(stderr) << "varnolt-cli: doctor does not know " << argument << "\n\n" << Usage;
            return ExitStatus::BadUsage;
        } else {
            ports << argument;
        }
    }
    const PortDoctor doctor(PortMap::fromEnvironment(), SystemPaths{}, UserIdentity::current());
    if (ports.isEmpty())
        ports = doctor.defaultPorts();
    QTextStream out(stdout);
    bool allWell = true;
    for (qsizetype i = 0; i < ports.size(); ++i) {
        if (i > 0)
            out << '\n';
        const PortDiagnosis diagnosis = doctor.examine(ports[i]);
        out << DoctorText::lines(diagnosis).join(QLatin1Char('\n')) << '\n';
        allWell = allWell && diagnosis.findings.isEmpty();
        if (withLoopback)
            allWell = loopback(diagnosis, out) && allWell;
    }
    return allWell ? ExitStatus::Success : ExitStatus::ProblemsFound;
}

} // namespace DoctorCommand
