// The controls the engine writes into during a load and a run.
#include "wizard/frmWizard.h"

#include "engine/QX_UploadProcess.h"
#include "link/PortDescription.h"
#include "wizard/ProgressBox.h"
#include "wizard/StepPictures.h"

#include <QComboBox>
#include <QGuiApplication>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSignalBlocker>

namespace {
// Messages break lines with CR LF; the controls want a plain line feed.
QString forDisplay(QString text)
{
    return text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
}
constexpr QSize AnimationSize(139, 111);
} // namespace

bool frmWizard::showWindow()
{
    // Placed before it is shown: message boxes centre on where the window is, and the start-up
    // shows its messages before the window manager would have placed it.
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
    show();
    return true;
}

void frmWizard::insertLogLineOnTop(const QString &line)
{
    m_lstStep->insertItem(0, line);
}

void frmWizard::setActionText(const QString &text)
{
    m_lblActionText->setText(text);
}

QString frmWizard::actionText() const
{
    return m_lblActionText->text();
}

void frmWizard::drawStepBar(double percent)
{
    m_pboxStep->setShare(percent / 100.0);
}

void frmWizard::drawEntireBar(int32_t value, int32_t total)
{
    m_pboxEntireProcess->setShare(total > 0 ? double(value) / double(total) : 0.0);
}

void frmWizard::showAnimationFrame(int frame)
{
    m_imgStep[UploadStep]->setPixmap(
        StepPictures::render(QStringLiteral("upload%1").arg(frame), AnimationSize, devicePixelRatioF()));
}

void frmWizard::setBackNextEnabled(bool enabled)
{
    // While a run is on the stack the user gets neither: a second run would start on top of it.
    m_cmdNav[BackButton]->setEnabled(enabled && !m_uploadRunning);
    m_cmdNav[NextButton]->setEnabled(enabled && !m_uploadRunning);
}

void frmWizard::pressNext()
{
    // The engine's own press at the end of a run: it moves on although the user may not.
    GoToStep(static_cast<int16_t>(mnCurStep + 1), Next);
}

void frmWizard::setResultText(const QString &text)
{
    m_result = text;
    m_lblStep[Finished]->setText(forDisplay(text));
}

void frmWizard::clearSummary()
{
    m_summary.clear();
    m_txtSummary->clear();
}

void frmWizard::appendSummary(const QString &piece)
{
    m_summary += piece;
    m_txtSummary->setPlainText(forDisplay(m_summary));
}

void frmWizard::setReadmeText(const QString &text)
{
    m_txtReadme->setPlainText(forDisplay(text));
}

// The selectors are filled without running their change handlers; choosing an entry (by
// the user, or by setting a text that is one of the entries) runs them.
void frmWizard::clearPorts()
{
    const QSignalBlocker quiet(m_cmbPorts);
    m_cmbPorts->clear();
}

void frmWizard::addPort(const QString &port)
{
    const QSignalBlocker quiet(m_cmbPorts);
    m_cmbPorts->addItem(port);
    m_cmbPorts->setCurrentIndex(-1);
}

void frmWizard::setPortText(const QString &port)
{
    selectListEntry(*m_cmbPorts, port);
}

void frmWizard::clearLanguages()
{
    const QSignalBlocker quiet(m_cmbFirmwareLanguages);
    m_cmbFirmwareLanguages->clear();
}

void frmWizard::addLanguage(const QString &language)
{
    const QSignalBlocker quiet(m_cmbFirmwareLanguages);
    m_cmbFirmwareLanguages->addItem(language);
    m_cmbFirmwareLanguages->setCurrentIndex(-1);
}

void frmWizard::setLanguageText(const QString &language)
{
    selectListEntry(*m_cmbFirmwareLanguages, language);
}

void frmWizard::showPortDevice()
{
    const QString port = m_cmbPorts->currentText().trimmed();
    m_lblPortDevice->setText(port.isEmpty() ? QString()
                                            : PortDescription::of(port, PortMap::fromEnvironment(), SerialAdapter::present()));
}

bool frmWizard::selectListEntry(QComboBox &selector, const QString &value)
{
    const int index = selector.findText(value, Qt::MatchExactly | Qt::MatchCaseSensitive);
    if (index < 0)
        return false;
    if (index == selector.currentIndex())
        selectorChosen(selector, index); // chosen again: the handler still runs
    else
        selector.setCurrentIndex(index);
    return true;
}

void frmWizard::selectorChosen(QComboBox &selector, int index)
{
    if (index < 0)
        return;
    const QString choice = selector.itemText(index).trimmed();
    if (&selector == m_cmbPorts)
        m_engine->setComPort(choice);
    else
        m_engine->setFirmwareLanguage(choice);
}
