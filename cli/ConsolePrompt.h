#pragma once
// Questions on a terminal. The overwrite question of a read-back file is decided by the
// policy: asked on the terminal when there is one, otherwise answered No, so an unattended
// run never replaces a file it was not told to. The question whether the instrument is the one
// of an update cut short is answered by --same-instrument or --other-instrument, else asked.
#include "cli/CliOptions.h"
#include "config/UserPrompt.h"

class ConsolePrompt : public UserPrompt {
public:
    explicit ConsolePrompt(CliOptions::Overwrite policy = CliOptions::Overwrite::Ask, std::optional<bool> sameInstrument = std::nullopt)
        : m_policy(policy), m_sameInstrument(sameInstrument)
    {
    }
    bool askYesNo(const QString &title, const QString &text) override;
    void showMessage(const QString &title, const QString &text) override;

private:
    CliOptions::Overwrite m_policy;
    std::optional<bool> m_sameInstrument;
};
