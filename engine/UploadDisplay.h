#pragma once
// What the engine draws into in wizard mode: the controls of the wizard window that the
// engine writes directly (log list, action line, bars, animation, navigation, summary,
// read-me box, and the selectors of SelectorView). The window implements it; tests implement it with a recorder.
#include "config/SelectorView.h"

#include <QString>
#include <cstdint>

class UploadDisplay : public SelectorView {
public:
    virtual ~UploadDisplay() = default;

    // Shows the window, not modal. False when it could not be shown because a file it
    // needs is missing.
    virtual bool showWindow() = 0;

    // Upload step
    virtual void insertLogLineOnTop(const QString &line) = 0;
    virtual void setActionText(const QString &text) = 0;
    // Current-operation bar to percent of its inner width (may be negative; never above 100).
    virtual void drawStepBar(double percent) = 0;
    // Whole-run bar to value / total of its inner width (value is not clamped to total).
    virtual void drawEntireBar(int32_t value, int32_t total) = 0;
    // Shows animation frame 0..3 in place of the step picture.
    virtual void showAnimationFrame(int frame) = 0;
    virtual void setBackNextEnabled(bool enabled) = 0;
    virtual void pressNext() = 0;

    // Finished step
    virtual void setResultText(const QString &text) = 0;

    // Settings step
    virtual void clearSummary() = 0;
    virtual void appendSummary(const QString &piece) = 0;
    virtual bool advancedDisplay() const = 0;

    // Introduction step
    virtual void setReadmeText(const QString &text) = 0;
};
