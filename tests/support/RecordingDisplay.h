#pragma once
// A display for tests: keeps what the engine drew, in the shape the window would show it.
#include "engine/UploadDisplay.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>
#include <utility>

class RecordingDisplay : public UploadDisplay {
public:
    bool showWindowResult = true;
    bool advanced = false;

    QStringList log; // newest first, as the window's list shows it
    QString actionText;
    QList<double> stepBar;                     // every drawing of the current-operation bar
    QList<std::pair<int32_t, int32_t>> entireBar; // every drawing of the whole-run bar
    QList<int> frames;
    QList<bool> backNextEnabled;
    int nextPresses = 0;
    QString resultText;
    QString summary;
    QString readme;
    QStringList ports, languages;
    QString portText, languageText;
    // Stand in for the selectors' change handlers. Like a drop-down list, a selector changes
    // its selection (and runs the handler) only for a text that is one of its items.
    std::function<void(const QString &)> onPortText, onLanguageText;

    bool showWindow() override { return showWindowResult; }
    void insertLogLineOnTop(const QString &line) override { log.prepend(line); }
    void setActionText(const QString &text) override { actionText = text; }
    void drawStepBar(double percent) override { stepBar << percent; }
    void drawEntireBar(int32_t value, int32_t total) override { entireBar << std::pair{value, total}; }
    void showAnimationFrame(int frame) override { frames << frame; }
    void setBackNextEnabled(bool enabled) override { backNextEnabled << enabled; }
    void pressNext() override { ++nextPresses; }
    void setResultText(const QString &text) override { resultText = text; }
    void clearSummary() override { summary.clear(); }
    void appendSummary(const QString &piece) override { summary += piece; }
    bool advancedDisplay() const override { return advanced; }
    void clearPorts() override { ports.clear(); }
    void addPort(const QString &port) override { ports << port; }
    void setPortText(const QString &port) override
    {
        portText = port;
        if (onPortText && ports.contains(port)) onPortText(port);
    }
    void clearLanguages() override { languages.clear(); }
    void addLanguage(const QString &language) override { languages << language; }
    void setLanguageText(const QString &language) override
    {
        languageText = language;
        if (onLanguageText && languages.contains(language)) onLanguageText(language);
    }
    void setReadmeText(const QString &text) override { readme = text; }
};
