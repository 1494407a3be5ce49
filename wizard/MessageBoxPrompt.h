#pragma once
// Message boxes on the wizard window, centred on it, their texts shown as plain text.
#include "wizard/WizardPrompt.h"

#include <QMessageBox>

class QWidget;

class MessageBoxPrompt : public WizardPrompt {
public:
    explicit MessageBoxPrompt(QWidget *parent) : m_parent(parent) {}
    bool askYesNo(const QString &title, const QString &text) override;
    void showMessage(const QString &title, const QString &text) override;
    bool askOkCancel(const QString &title, const QString &text) override;

private:
    QMessageBox::StandardButton ask(QMessageBox::Icon icon, const QString &title, const QString &text,
                                    QMessageBox::StandardButtons buttons, QMessageBox::StandardButton preset);

    QWidget *m_parent;
};
