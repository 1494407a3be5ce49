#include "engine/QX_UploadProcess.h"

#include "engine/UploadDisplay.h"
#include "engine/UserPrompt.h"

#include <QCoreApplication>
#include <QEventLoop>

namespace {
constexpr int AnimationFrames = 4;
constexpr int32_t CodeCancelled = 11;
}

QX_UploadProcess::QX_UploadProcess(ApplicationLayerFactory factory, UserPrompt &prompt, QObject *parent)
    : QObject(parent), m_factory(std::move(factory)), m_prompt(prompt)
{
}

QX_UploadProcess::~QX_UploadProcess() = default;

void QX_UploadProcess::setComPort(const QString &sValue)
{
    ComPort = sValue;
}

void QX_UploadProcess::setFirmwareLanguage(const QString &sValue)
{
    FirmwareLanguage = sValue.trimmed().toUpper();
}

void QX_UploadProcess::Cancel()
{
    if (WizardRunning)
        m_display->setResultText(QStringLiteral("Firmware Upload Cancelled"));
    else
        AddLogLine(QStringLiteral("Upload Cancel Received"));
    CancelRequested = true;
    fail(CodeCancelled, QString());
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
    // WaitForMoreEvents blocks in the event dispatcher until something arrives (a byte on
    // the port, a click, a timer), so an unanswered request costs no CPU.
    while (!ResponseReceived && !CancelRequested)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

ApplicationLayer *QX_UploadProcess::CreateAppLayer()
{
    AppLayer = m_factory();
    connect(AppLayer.get(), &ApplicationLayer::Trovex_Response, this, &QX_UploadProcess::Trovex_Response);
    connect(AppLayer.get(), &ApplicationLayer::Trovex_Error, this, &QX_UploadProcess::Trovex_Error);
    return AppLayer.get();
}

void QX_UploadProcess::DropAppLayer()
{
    AppLayer.reset();
}
