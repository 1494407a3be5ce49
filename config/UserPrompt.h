#pragma once
// The questions and notices the engine puts to the user. The wizard shows message boxes,
// the headless tool asks on a terminal or decides by its flags, tests script the answers.
#include <QString>

class UserPrompt {
public:
    virtual ~UserPrompt() = default;
    // A question with Yes and No; true for Yes.
    virtual bool askYesNo(const QString &title, const QString &text) = 0;
    // A notice with a single OK button.
    virtual void showMessage(const QString &title, const QString &text) = 0;
};
