#pragma once
// A prompt for tests: answers yes/no questions from a script and records every question.
#include "config/UserPrompt.h"

#include <QList>
#include <QString>
#include <QStringList>

class ScriptedPrompt : public UserPrompt {
public:
    QList<bool> answers;     // used in order; No when the script has run out
    QStringList questions;   // "title|text" of every question and notice

    bool askYesNo(const QString &title, const QString &text) override
    {
        questions << title + QLatin1Char('|') + text;
        return answers.isEmpty() ? false : answers.takeFirst();
    }
    void showMessage(const QString &title, const QString &text) override
    {
        questions << title + QLatin1Char('|') + text;
    }
};
