#pragma once
// What the doctor found out about one port name.
#include "doctor/DoctorFinding.h"
#include "doctor/UsbIdentity.h"

#include <QList>
#include <QStringList>
#include <optional>

struct PortDiagnosis {
    QString port;            // as the package or the user names it, e.g. COM1
    QString device;          // the device it opens; "" when it names none
    bool mapped = false;     // the port map names it (rather than the default COMn device)
    QString resolved;        // the device's real path, when that differs (a by-id link)
    QString note;            // a port that is not a device here (a network controller)
    std::optional<UsbIdentity> adapter;
    QStringList byIdNames;   // the adapter's stable names
    int highestRate = 0;     // baud; 0 when the port could not be opened
    QList<DoctorFinding> findings;
};
