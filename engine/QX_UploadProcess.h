#pragma once
// The upload engine: holds the loaded package configuration and the state of a run, talks to
// the application layer by request and wait, and reports progress either into the wizard
// window (wizard mode) or as ProgressUpdate / ActionUpdate signals.
//
// Everything runs on one thread. Waits yield to the Qt event loop and sleep there until an
// event arrives; the application layer's events and the user's Cancel are delivered only
// during those waits, and their handlers only set flags, codes and fields.
#include "config/LastErrorOwner.h"
#include "engine/ApplicationLayer.h"

#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>

class UploadDisplay;
class UserPrompt;

class QX_UploadProcess : public QObject, public LastErrorOwner {
    Q_OBJECT
public:
    QX_UploadProcess(ApplicationLayerFactory factory, UserPrompt &prompt, QObject *parent = nullptr);
    ~QX_UploadProcess() override;

    // --- Public members -------------------------------------------------------------------
    void setComPort(const QString &sValue);
    void setFirmwareLanguage(const QString &sValue);
    void Cancel();
    // Puts the engine into wizard mode, writing into display from now on, and shows the window.
    bool UploadWizard_Running(UploadDisplay &display);
    bool RestartInstrument() const { return !ContinueFlag; }

    // --- Output helpers used by every engine operation ----------------------------------
    void AddLogLine(const QString &text);
    // percent is the caller's variable: a value above 100 is drawn as 100 and stays 100.
    void ShowAction(const QString &text, int16_t &percent);
    void AppendSummary(const QString &text);
    void UpdateEntireProgress();
    void AnimateStep();
    // Sleeps in the event loop until ResponseReceived or CancelRequested; the caller clears
    // ResponseReceived before it sends the request and reads the error code afterwards.
    void WaitForResponse();

    // --- Application layer of a run -----------------------------------------------------
    // Creates the layer through the factory and connects its events to the handlers.
    ApplicationLayer *CreateAppLayer();
    // Drops the layer without any further call into it.
    void DropAppLayer();
    ApplicationLayer *appLayer() const { return AppLayer.get(); }

    // --- Event handlers -------------------------------------------------------------------
    void Trovex_Response(int32_t enumResponseID);
    void Trovex_Error(int16_t iLastError);

    // --- Configuration fields --------------------------------------------------------------
    QString ComPort;
    QString PortKeyValue;
    QString FirmwareLanguage;
    QString BaudText;
    int32_t ArchitectureIndex = 0;
    bool ContinueFlag = true;
    bool ConfigInvalid = true;
    int32_t ProgressTotal = 0;
    int32_t ProgressAfterErase = 0;

    // --- Run state ----------------------------------------------------------------------
    bool WizardRunning = false;
    bool CancelRequested = false;
    bool ResponseReceived = false;
    int32_t ManufacturerCode = 0;
    int32_t DeviceCode = 0;
    int32_t TargetChecksum = 0;
    int32_t ProgressCount = 0;
    int32_t ProgressDrawn = 0;
    bool AnimateReverse = false;
    int16_t AnimationFrame = 0;

    // The engine's own last-error holder, created on first use and never replaced.
    QX_Error &ErrorHolder() const { return holder(); }

signals:
    void ProgressUpdate(const QString &sDescription, int16_t iProgress);
    void ActionUpdate(const QString &sDescription);

private:
    bool failIfLayerError(); // shared by the 161 and 166 answers

    ApplicationLayerFactory m_factory;
    UserPrompt &m_prompt;
    UploadDisplay *m_display = nullptr; // set once, by UploadWizard_Running
    std::unique_ptr<ApplicationLayer> AppLayer;
};
