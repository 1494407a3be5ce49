#include "engine/QX_UploadProcess.h"

#include "config/ConfigurationLoader.h"
#include "config/ConfigurationReader.h"
#include "config/ConfigurationSummary.h"
#include "config/ConfigurationValidator.h"
#include "config/ErrorCodes.h"
#include "config/UserPrompt.h"
#include "engine/UploadDisplay.h"

#include <QCoreApplication>
#include <algorithm>
#include <QEventLoop>
#include <QFile>

namespace {
constexpr int AnimationFrames = 4;
const QString ProgramTitle = QStringLiteral("Varnolt");
}

QX_UploadProcess::QX_UploadProcess(ApplicationLayerFactory factory, UserPrompt &prompt, QObject *parent)
    : QObject(parent), m_factory(std::move(factory)), m_prompt(prompt)
{
}

QX_UploadProcess::~QX_UploadProcess()
{
    for (const QString &path : m_tempCopies)
        QFile::remove(path);
}

void QX_UploadProcess::setComPort(const QString &sValue)
{
    ComPort = sValue;
    PortKeyValue = ConfigurationReader(ConfigTempFile, holder()).ReadConfigValue(QStringLiteral("HOST"), ComPort);
    if (holder().GetLastError() != 0) {
        PortKeyValue.clear();
        holder().SetLastError(0);
    }
    DisplayConfiguration();
}

void QX_UploadProcess::setFirmwareLanguage(const QString &sValue)
{
    FirmwareLanguage = sValue.trimmed().toUpper();
    // While a load runs, or after one failed, only the name is kept.
    if (ConfigInvalid)
        return;
    if (!BuildProgramList())
        m_prompt.showMessage(ProgramTitle, QStringLiteral("error in language selection"));
    DisplayConfiguration();
}

void QX_UploadProcess::setFilename(const QString &sValue)
{
    CancelRequested = false;
    ConfigurationLoader(*this, m_package, holder(), WizardRunning ? m_display : nullptr).load(sValue);
    if (!ConfigTempFile.isEmpty() && std::find(m_tempCopies.begin(), m_tempCopies.end(), ConfigTempFile) == m_tempCopies.end())
        m_tempCopies.push_back(ConfigTempFile);
}

bool QX_UploadProcess::BuildProgramList()
{
    return ConfigurationLoader(*this, m_package, holder(), WizardRunning ? m_display : nullptr).BuildProgramList();
}

void QX_UploadProcess::DisplayConfiguration()
{
    if (WizardRunning)
        m_display->clearSummary();
    const bool withSettings = WizardRunning && m_display->advancedDisplay();
    for (const QString &piece : ConfigurationSummary::pieces(*this, withSettings, m_highestLineRate, holder()))
        AppendSummary(piece);
}

bool QX_UploadProcess::ValidateConfiguration()
{
    return ConfigurationValidator::ValidateConfiguration(*this, holder(), m_prompt);
}

bool QX_UploadProcess::DisplayReadMe()
{
    if (WizardRunning)
        m_display->setReadmeText(QString());
    const std::optional<QString> readme = m_package.readText(QStringLiteral("Readme.txt"));
    if (!readme)
        return false;
    if (WizardRunning)
        m_display->setReadmeText(*readme);
    return true;
}

void QX_UploadProcess::Cancel()
{
    if (WizardRunning)
        m_display->setResultText(QStringLiteral("Firmware Upload Cancelled"));
    else
        AddLogLine(QStringLiteral("Upload Cancel Received"));
    CancelRequested = true;
    fail(ErrorCode::Cancelled, QString());
}

bool QX_UploadProcess::UploadWizard_Running(UploadDisplay &display)
{
    WizardRunning = true;
    m_display = &display;
    if (!m_display->showWindow())
        m_display->setReadmeText(QStringLiteral("Readme File Not Found"));
    return true;
}

void QX_UploadProcess::AddLogLine(const QString &text)
{
    m_lastLogLine = text;
    if (WizardRunning)
        m_display->insertLogLineOnTop(text);
    else
        emit ActionUpdate(text);
}

void QX_UploadProcess::ShowAction(const QString &text, int16_t &percent)
{
    if (!WizardRunning) {
        emit ProgressUpdate(text, percent);
        return;
    }
    if (percent > 100)
        percent = 100;
    m_display->setActionText(text);
    m_display->drawStepBar(percent);
}

void QX_UploadProcess::AppendSummary(const QString &text)
{
    if (WizardRunning)
        m_display->appendSummary(text);
    else
        emit ActionUpdate(text);
}

void QX_UploadProcess::UpdateEntireProgress()
{
    if (!WizardRunning)
        return;
    const int32_t v = ProgressCount;
    if (v < 0)
        return;
    // Redraw only when the value has grown by at least a hundredth of itself.
    if (static_cast<double>(ProgressDrawn) + static_cast<double>(v) / 100.0 > static_cast<double>(v))
        return;
    m_display->drawEntireBar(v, ProgressTotal);
    ProgressDrawn = v;
}

void QX_UploadProcess::AnimateStep()
{
    if (!WizardRunning)
        return;
    m_display->showAnimationFrame(AnimationFrame);
    const int step = AnimateReverse ? AnimationFrames - 1 : 1;
    AnimationFrame = static_cast<int16_t>((AnimationFrame + step) % AnimationFrames);
}

void QX_UploadProcess::WaitForResponse()
{
    waitUntil([this] { return ResponseReceived; });
}

bool QX_UploadProcess::waitUntil(const std::function<bool()> &done)
{
    // WaitForMoreEvents blocks in the event dispatcher until something arrives (a byte on
    // the port, a click, a timer), so an unanswered request costs no CPU. The flags are read
    // before every sleep: whatever set them before the wait began is not lost.
    while (!done() && !CancelRequested)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return done();
}

ApplicationLayer *QX_UploadProcess::CreateAppLayer()
{
    AppLayer = m_factory([this](const std::function<bool()> &done) { return waitUntil(done); });
    connect(AppLayer.get(), &ApplicationLayer::Trovex_Response, this, &QX_UploadProcess::Trovex_Response);
    connect(AppLayer.get(), &ApplicationLayer::Trovex_Error, this, &QX_UploadProcess::Trovex_Error);
    return AppLayer.get();
}

void QX_UploadProcess::DropAppLayer()
{
    AppLayer.reset();
}
