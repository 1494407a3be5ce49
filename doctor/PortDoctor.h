#pragma once
// Why a port does not work, found without changing anything: the device a port name opens
// and whether it is there; whether the user may open it (and whether a group the user joined
// counts yet); which process holds it; whether ModemManager probes it; which USB adapter it
// is and the highest rate its driver takes. Each finding comes with the command that fixes it.
//
// Opening the device to learn its rates is the one thing done to it, and only when no other
// program has it open; its settings are put back before it is closed.
#include "doctor/GroupFile.h"
#include "doctor/PortDiagnosis.h"
#include "doctor/ProcessTable.h"
#include "doctor/SystemPaths.h"
#include "doctor/TtySysfs.h"
#include "doctor/UserIdentity.h"
#include "link/PortMap.h"

class PortDoctor {
public:
    PortDoctor(const PortMap &map, const SystemPaths &paths, const UserIdentity &user);

    PortDiagnosis examine(const QString &port) const;
    // What to examine when no port is named: the ports the map names, then each USB serial
    // adapter that none of them opens; COM1 when there is neither.
    QStringList defaultPorts() const;

    static constexpr const char *ModemManager = "ModemManager";

private:
    void examineDevice(PortDiagnosis &diagnosis) const;
    // False when the user may not open the device.
    bool checkPermission(PortDiagnosis &diagnosis) const;
    // False when another program holds the device.
    bool checkHolders(PortDiagnosis &diagnosis, QList<ProcessTable::Process> holders) const;
    // tty: the device's kernel name (ttyUSB0).
    void checkModemManager(PortDiagnosis &diagnosis, const QString &tty, QList<ProcessTable::Process> holders) const;
    // Opens the device and finds the highest rate it takes.
    void probe(PortDiagnosis &diagnosis) const;
    // The port cannot be used as it is mapped: map it to an adapter that is there.
    DoctorFinding mapToAdapter(const PortDiagnosis &diagnosis, const QString &problem) const;
    // "export TROVEX_PORTS=..." with port mapped to target and the map's other entries kept.
    QString exportCommand(const QString &port, const QString &target) const;
    // An adapter present, by its stable name where it has one; "" when there is none.
    QString adapterPresent(const QString &besides) const;
    // An adapter present, or the usual first adapter's name as an example.
    QString adapterOrExample() const;

    PortMap m_map;
    SystemPaths m_paths;
    UserIdentity m_user;
    GroupFile m_groups;
    ProcessTable m_processes;
    TtySysfs m_sysfs;
};
