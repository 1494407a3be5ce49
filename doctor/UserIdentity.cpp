#include "doctor/UserIdentity.h"

#include <pwd.h>
#include <unistd.h>
#include <vector>

UserIdentity UserIdentity::current()
{
    UserIdentity user;
    user.uid = ::geteuid();
    const passwd *entry = ::getpwuid(user.uid);
    user.name = entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(user.uid);
    user.groups << ::getegid();
    const int count = ::getgroups(0, nullptr);
    std::vector<gid_t> supplementary(size_t(count > 0 ? count : 0));
    if (count > 0 && ::getgroups(count, supplementary.data()) == count)
        for (const gid_t gid : supplementary)
            if (!user.groups.contains(gid))
                user.groups << gid;
    return user;
}
