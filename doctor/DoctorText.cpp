#include "doctor/DoctorText.h"

#include "link/PortMap.h"
#include "link/SerialAdapter.h"

namespace DoctorText {
namespace {
const QString Indent = QStringLiteral("  ");
const QString FixIndent = QStringLiteral("       "); // under the command, past "  Fix: "

QString heading(const PortDiagnosis &d)
{
    if (!d.note.isEmpty())
        return d.port + QStringLiteral(": ") + d.note;
    if (d.device.isEmpty())
        return d.port + QLatin1Char(':');
    QString text = d.port == d.device ? d.device : d.port + QStringLiteral(" opens ") + d.device;
    if (!d.resolved.isEmpty())
        text += QStringLiteral(" (") + d.resolved + QLatin1Char(')');
    if (d.port != d.device)
        text += d.mapped ? QStringLiteral(", as %1 says").arg(QLatin1String(PortMap::EnvironmentVariable))
                         : QStringLiteral(", by default");
    return text;
}
} // namespace

QStringList lines(const PortDiagnosis &d)
{
    QStringList out{heading(d)};
    if (d.adapter) {
        const SerialAdapter adapter{d.device, d.byIdNames, d.adapter->manufacturer, d.adapter->product, d.adapter->serial};
        out << Indent + QStringLiteral("Adapter: %1 (USB ID %2:%3)").arg(adapter.description(), d.adapter->vendorId, d.adapter->productId);
        for (const QString &name : d.byIdNames)
            out << Indent + QStringLiteral("Stable name: ") + name;
    }
    if (d.highestRate > 0)
        out << Indent + QStringLiteral("Highest rate: %1 baud").arg(d.highestRate);
    for (const DoctorFinding &finding : d.findings) {
        out << Indent + QStringLiteral("Problem: ") + finding.problem;
        out << Indent + QStringLiteral("Fix: ") + finding.command;
        if (!finding.after.isEmpty())
            out << FixIndent + finding.after + QLatin1Char('.');
    }
    if (d.findings.isEmpty() && !d.device.isEmpty())
        out << Indent + QStringLiteral("No problem found.");
    return out;
}

} // namespace DoctorText
