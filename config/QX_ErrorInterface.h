#pragma once
// The last-error interface through which a caller reads another object's failure. The
// engine, the five entry records and the command-line parser implement it by forwarding to
// a holder of their own (see LastErrorOwner).
#include <QString>
#include <cstdint>

class QX_ErrorInterface {
public:
    virtual ~QX_ErrorInterface() = default;
    virtual void QX_Error_SetLastError(int32_t code) = 0;
    virtual void QX_Error_SetLastErrorString(const QString &text) = 0;
    virtual int32_t QX_Error_GetLastError() const = 0;
    virtual QString QX_Error_GetLastErrorString() const = 0;
};
