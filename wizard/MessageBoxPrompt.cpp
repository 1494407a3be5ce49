#include "wizard/MessageBoxPrompt.h"

#include <QMessageBox>

namespace {
QString forDisplay(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
} // namespace

QMessageBox::StandardButton MessageBoxPrompt::ask(QMessageBox::Icon icon, const QString &title, const QString &text,
                                                  QMessageBox::StandardButtons buttons, QMessageBox::StandardButton preset)
{
    QMessageBox box(icon, title, forDisplay(text), buttons, m_parent);
    // The texts carry the package's names and notes, which must never be read as markup.
    box.setTextFormat(Qt::PlainText);
    box.setDefaultButton(preset);
    return static_cast<QMessageBox::StandardButton>(box.exec());
}

bool MessageBoxPrompt::askYesNo(const QString &title, const QString &text)
{
    return ask(QMessageBox::Question, title, text, QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

void MessageBoxPrompt::showMessage(const QString &title, const QString &text)
{
    ask(QMessageBox::Information, title, text, QMessageBox::Ok, QMessageBox::Ok);
}

bool MessageBoxPrompt::askOkCancel(const QString &title, const QString &text)
{
    return ask(QMessageBox::Warning, title, text, QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok) == QMessageBox::Ok;
}
