#pragma once
// The port and firmware-language selectors of the Settings step, as the configuration load
// fills them. Setting a selector's text runs its change handler as a user's choice would.
#include <QString>

class SelectorView {
public:
    virtual ~SelectorView() = default;
    virtual void clearPorts() = 0;
    virtual void addPort(const QString &port) = 0;
    virtual void setPortText(const QString &port) = 0;
    virtual void clearLanguages() = 0;
    virtual void addLanguage(const QString &language) = 0;
    virtual void setLanguageText(const QString &language) = 0;
};
