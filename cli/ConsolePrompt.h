#pragma once
// Questions on a terminal: asked on the terminal when there is one, answered No otherwise
// (so an unattended run never overwrites a file it was not told to).
#include "config/UserPrompt.h"

class ConsolePrompt : public UserPrompt {
public:
    bool askYesNo(const QString &title, const QString &text) override;
    void showMessage(const QString &title, const QString &text) override;
};
