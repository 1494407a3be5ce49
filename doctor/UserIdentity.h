#pragma once
// Whom the doctor checks for: the user of this process and the groups the process has now.
// Those are the groups of the login it was started from, not the ones the group file lists
// today: a user added to dialout has it only after logging in again.
#include <QList>
#include <QString>

struct UserIdentity {
    unsigned uid = 0;
    QString name;
    QList<unsigned> groups; // the effective group and the supplementary ones

    static UserIdentity current();
};
