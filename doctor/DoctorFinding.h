#pragma once
// One thing that keeps a port from working, and the one command that puts it right. The
// doctor only looks; the technician runs the command.
#include <QString>

struct DoctorFinding {
    QString problem; // what is wrong, in a sentence or two
    QString command; // the command that fixes it
    QString after;   // what else the fix needs, e.g. "then log out and log in again"; may be empty
};
