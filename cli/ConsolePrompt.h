#pragma once
// Questions on a terminal. The overwrite question of a read-back file is decided by the
// policy: asked on the terminal when there is one, otherwise answered No, so an unattended
// run never replaces a file it was not told to.
#include "cli/CliOptions.h"
#include "config/UserPrompt.h"

class ConsolePrompt : public UserPrompt {
public:
    explicit ConsolePrompt(CliOptions::Overwrite policy = CliOptions::Overwrite::Ask) : m_policy(policy) {}
    bool askYesNo(const QString &title, const QString &text) override;
    void showMessage(const QString &title, const QString &text) override;

private:
    CliOptions::Overwrite m_policy;
};
