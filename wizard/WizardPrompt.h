#pragma once
// The wizard's message boxes: the engine's questions plus OK/Cancel, which the start-up
// sequence uses to let the user end the program.
#include "config/UserPrompt.h"

class WizardPrompt : public UserPrompt {
public:
    // True for OK, false for Cancel.
    virtual bool askOkCancel(const QString &title, const QString &text) = 0;
};
