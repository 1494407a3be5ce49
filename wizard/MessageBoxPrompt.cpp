#include "wizard/MessageBoxPrompt.h"

#include <QMessageBox>

namespace {
QString forDisplay(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
} // namespace

bool MessageBoxPrompt::askYesNo(const QString &title, const QString &text)
{
    return QMessageBox::question(m_parent, title, forDisplay(text), QMessageBox::Yes | QMessageBox::No, QMessageBox::No)
           == QMessageBox::Yes;
}

void MessageBoxPrompt::showMessage(const QString &title, const QString &text)
{
    QMessageBox::information(m_parent, title, forDisplay(text), QMessageBox::Ok);
}

bool MessageBoxPrompt::askOkCancel(const QString &title, const QString &text)
{
    return QMessageBox::warning(m_parent, title, forDisplay(text), QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok)
           == QMessageBox::Ok;
}
