#pragma once
// The upload engine: holds the loaded package configuration and the state of a run, talks to
// the application layer by request and wait, and reports progress either into the wizard
// window (wizard mode) or as ProgressUpdate / ActionUpdate signals.
//
// Everything runs on one thread. Waits yield to the Qt event loop and sleep there until an
// event arrives; the application layer's events and the user's Cancel are delivered only
// during those waits, and their handlers only set flags, codes and fields.
#include "config/LastErrorOwner.h"
#include "config/PackageConfiguration.h"
#include "engine/ApplicationLayer.h"
#include "engine/EngineClock.h"
#include "package/Package.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>
#include <vector>

class UploadDisplay;
class UserPrompt;

class QX_UploadProcess : public QObject, public LastErrorOwner, public PackageConfiguration {
    Q_OBJECT
public:
    QX_UploadProcess(ApplicationLayerFactory factory, UserPrompt &prompt, QObject *parent = nullptr);
    // Removes the temporary configuration copies this engine made.
    ~QX_UploadProcess() override;

    // --- Public members -------------------------------------------------------------------
    // The user's port: reads its power-on key and refreshes the summary.
    void setComPort(const QString &sValue);
    // The user's language: rebuilds the program list (once a configuration is loaded) and
    // refreshes the summary.
    void setFirmwareLanguage(const QString &sValue);
    void Cancel();
    // Fills the read-me box from the package's "Readme.txt"; false when it has none.
    bool DisplayReadMe();
    // Puts the engine into wizard mode, writing into display from now on, and shows the window.
    bool UploadWizard_Running(UploadDisplay &display);
    // The package every later load, read-me and run reads from.
    void setPackage(const Package &package) { m_package = package; }
    const Package &package() const { return m_package; }
    // Loads configuration member sValue of the package; the outcome is the error code.
    void setFilename(const QString &sValue);
    // Writes the connection instruction (and, in the advanced display, every setting) as
    // summary pieces.
    void DisplayConfiguration();
    bool RestartInstrument() const { return !ContinueFlag; }
    // Checks the loaded configuration before a run; the text collects every complaint.
    bool ValidateConfiguration();
    bool BuildProgramList();
    // The whole update run; true when every step succeeded. The outcome's message is the
    // last error.
    bool Upload();
    // Why the layer could not open the channel in the last run (a missing device, a missing
    // permission, a busy port, ...); empty when it opened or gave no reason.
    QString openFailureReason() const { return m_openFailureReason; }

    // --- Flash passes of a run -----------------------------------------------------------
    bool DownloadFlashMemories();
    bool EraseFlashMemories();
    bool ProgramFlashMemories();

    // Limits the next runs to loading the transfer program (the wizard's TRANSFERONLY switch).
    void setTransferOnly(bool transferOnly) { m_transferOnly = transferOnly; }
    bool transferOnly() const { return m_transferOnly; }
    void setClock(EngineClock clock) { m_clock = std::move(clock); }
    // The fastest line rate the user allows a serial line, for the advanced summary: the
    // application layer tries it once the transfer program runs.
    void setHighestLineRate(int baud) { m_highestLineRate = baud; }

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
    // The one waiting point of the program: sleeps in the event loop until done() holds or
    // the user cancels. True when done() holds. The layer waits through it too.
    bool waitUntil(const std::function<bool()> &done);
    // WaitForResponse with the erase's 200 ms tick: the whole-run bar creeps on (up to
    // ProgressAfterErase) and the animation moves while a long request is pending.
    void WaitForResponseWithProgressTick();
    // Clears ResponseReceived, sends the request and waits: the request-and-wait pattern.
    // True when the answer recorded no error.
    template <typename Request> bool request(Request send)
    {
        ResponseReceived = false;
        send(*AppLayer);
        WaitForResponse();
        return holder().GetLastError() == 0;
    }

    // --- Application layer of a run -----------------------------------------------------
    // Creates the layer through the factory and connects its events to the handlers.
    ApplicationLayer *CreateAppLayer();
    // Drops the layer without any further call into it.
    void DropAppLayer();
    ApplicationLayer *appLayer() const { return AppLayer.get(); }

    // --- Event handlers -------------------------------------------------------------------
    void Trovex_Response(int32_t enumResponseID);
    void Trovex_Error(int16_t iLastError);

    // The configuration fields are those of PackageConfiguration.

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
    int64_t CurrentTick = 0;       // the tick stamps of the progress ticks, in ms
    int64_t LastAnimationTick = 0;

    // The engine's own last-error holder, created on first use and never replaced.
    QX_Error &ErrorHolder() const { return holder(); }

    // --- What the last run leaves for its report ----------------------------------------
    // The flash codes of each memory identified, in list order.
    struct ChipCodes {
        QString flashName;
        int32_t manufacturer = 0;
        int32_t device = 0;
    };
    const std::vector<ChipCodes> &identifiedChips() const { return m_identifiedChips; }
    // The line the failing step logged, "" after a success: a failure that records no code
    // (a checksum mismatch) is reported with it.
    QString failureLine() const { return m_failureLine; }
    // The run has reached the erase pass: from there on a failure or a cancel may leave the
    // instrument without working firmware. Set while the run is still in that pass.
    bool eraseBegan() const { return m_eraseBegan; }
    int64_t BytesWritten = 0;  // image bytes the instrument took
    int64_t BytesVerified = 0; // of those, the bytes of images whose checksum matched

signals:
    void ProgressUpdate(const QString &sDescription, int16_t iProgress);
    void ActionUpdate(const QString &sDescription);

private:
    bool failIfLayerError(); // shared by the 161 and 166 answers
    // Calls AnimateStep when a progress tick has passed since the last one.
    void animateOnTick();
    bool openChannel();
    QString initString() const;
    bool uploadTransferProgram();
    bool identifyFlashMemories();
    // Identification, read-back, erase and programming.
    bool updateFlash();
    void finishRun(int startSecond);
    int wholeSecondOfDay() const;
    // The memory that holds [start, end): the last in list order, or none.
    const QX_Memory *memoryHolding(int32_t start, int32_t end) const;
    bool readBackEntry(const QX_Download &entry, uint8_t *buffer);
    // Reads the files the write-back entries program, whole, before anything is erased; false
    // (with the reason) when one cannot be written back.
    bool loadWriteBackImages();
    bool programEntry(const QX_Program &entry, uint8_t *buffer);
    // The image an entry programs: a member of the package, or the bytes loadWriteBackImages
    // took from its read-back file.
    int32_t imageLength(const QX_Program &entry) const;
    int32_t readImage(const QX_Program &entry, uint8_t *buffer, int32_t count, int32_t offset) const;

    ApplicationLayerFactory m_factory;
    UserPrompt &m_prompt;
    UploadDisplay *m_display = nullptr; // set once, by UploadWizard_Running
    Package m_package;
    std::vector<QString> m_tempCopies;  // configuration copies to remove at the end
    QHash<QString, QByteArray> m_writeBackImages; // by read-back file, for the current run
    bool m_transferOnly = false;
    int m_highestLineRate = 0;
    QString m_openFailureReason;
    EngineClock m_clock = EngineClock::system();
    std::unique_ptr<ApplicationLayer> AppLayer;
    QString m_lastLogLine;
    QString m_failureLine;
    bool m_eraseBegan = false;
    std::vector<ChipCodes> m_identifiedChips;
};
