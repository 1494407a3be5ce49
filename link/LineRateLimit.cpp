#include "link/LineRateLimit.h"

#include <QString>

namespace LineRateLimit {

int fromEnvironment()
{
    if (!qEnvironmentVariableIsSet(EnvironmentVariable))
        return Default;
    bool ok = false;
    const int baud = qEnvironmentVariable(EnvironmentVariable).trimmed().toInt(&ok);
    return ok && baud > 0 ? baud : 0;
}

}
