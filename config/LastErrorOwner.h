#pragma once
// Base of every class that owns a last-error holder: creates the holder on first use and
// forwards the last-error interface to it. Inside the class, code talks to holder() directly.
#include "config/QX_Error.h"
#include "config/QX_ErrorInterface.h"

#include <memory>

class LastErrorOwner : public QX_ErrorInterface {
public:
    void QX_Error_SetLastError(int32_t code) override { holder().SetLastError(code); }
    void QX_Error_SetLastErrorString(const QString &text) override { holder().SetLastErrorString(text); }
    int32_t QX_Error_GetLastError() const override { return holder().GetLastError(); }
    QString QX_Error_GetLastErrorString() const override { return holder().GetLastErrorString(); }

protected:
    QX_Error &holder() const
    {
        if (!m_holder)
            m_holder = std::make_unique<QX_Error>();
        return *m_holder;
    }

    // Records a failure in one call: the code and its detail text.
    void fail(int32_t code, const QString &text) const
    {
        holder().SetLastError(code);
        holder().SetLastErrorString(text);
    }

private:
    mutable std::unique_ptr<QX_Error> m_holder;
};
