#pragma once
// Message boxes on the wizard window.
#include "wizard/WizardPrompt.h"

class QWidget;

class MessageBoxPrompt : public WizardPrompt {
public:
    explicit MessageBoxPrompt(QWidget *parent) : m_parent(parent) {}
    bool askYesNo(const QString &title, const QString &text) override;
    void showMessage(const QString &title, const QString &text) override;
    bool askOkCancel(const QString &title, const QString &text) override;

private:
    QWidget *m_parent;
};
