#pragma once
// The doctor's findings on a port as lines of text, the same in the headless tool and in the
// window: what the port opens, the adapter and its highest rate, then each problem with its fix.
#include "doctor/PortDiagnosis.h"

namespace DoctorText {
QStringList lines(const PortDiagnosis &diagnosis);
}
