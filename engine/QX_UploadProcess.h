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
#include <QStringList>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class Crc32;
class QIODevice;
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

    // --- The headless tool's service runs ----------------------------------------------
    // Each opens the channel, starts the transfer program and identifies the memories as an
    // update does, does its work, and shuts down the same way; true when all of it succeeded.
    //
    // Compares every image of the chosen language with the instrument, writing nothing. An
    // image that writes back a read-back file is compared with that file, when it is there.
    bool VerifyInstrument();
    struct ImageComparison {
        QString file;
        int32_t address = 0;
        int32_t length = 0;
        QString notCompared;                    // why it was not compared; "" when it was
        std::optional<int32_t> firstDifference; // none when equal
    };
    const std::vector<ImageComparison> &comparisons() const { return m_comparisons; }
    // Reads length bytes at start into file, checked by the instrument's CRC-32 as a read-back is.
    bool ReadInstrument(int32_t start, int32_t length, const QString &file);
    // Writes data (from the file called name) back at address. The erase units it touches are
    // read first and saved to backupFile, merged with data, and erased and programmed whole,
    // so that the bytes around data stay as they were; verified as every image is.
    bool RestoreInstrument(const QByteArray &data, const QString &name, int32_t address, const QString &backupFile);
    // The erase units the last restore read, saved and wrote back: their first byte and length.
    std::optional<std::pair<int32_t, int32_t>> restoredUnits() const { return m_restoredUnits; }
    // The transfer program of the last run answered range checksums: its reads were checked.
    bool rangeCrcOffered() const { return m_rangeCrcOffered; }

    // --- Flash passes of a run -----------------------------------------------------------
    bool DownloadFlashMemories();
    bool EraseFlashMemories();
    bool ProgramFlashMemories();

    // Limits the next runs to loading the transfer program (the wizard's TRANSFERONLY switch).
    void setTransferOnly(bool transferOnly) { m_transferOnly = transferOnly; }
    bool transferOnly() const { return m_transferOnly; }
    // Erases and programs everything the package names, also where the flash holds its final
    // content already (--full, the window's setting): the layer is told no plan.
    void setFullUpdate(bool full) { m_fullUpdate = full; }
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
    uint32_t TargetRangeCrc = 0;
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
    // The checksums of each image verified, or failed, in the last run: the 8-bit sum and,
    // where the transfer program answers it, the CRC-32.
    struct ImageCheck {
        QString file;
        int32_t address = 0;
        int32_t length = 0;
        int32_t hostSum = 0;
        int32_t targetSum = 0;
        uint32_t hostCrc = 0;
        std::optional<uint32_t> targetCrc;
    };
    const std::vector<ImageCheck> &imageChecks() const { return m_imageChecks; }
    // Ranges read back again because the instrument's CRC-32 did not match what arrived.
    int readBackRereads() const { return m_readBackRereads; }
    // What the last run did with read-back files saved by an update that was cut short.
    QStringList notices() const { return m_notices; }

signals:
    void ProgressUpdate(const QString &sDescription, int16_t iProgress);
    void ActionUpdate(const QString &sDescription);

private:
    bool failIfLayerError(); // shared by the 161 and 166 answers
    // Calls AnimateStep when a progress tick has passed since the last one.
    void animateOnTick();
    // The state every run starts from.
    void beginRun();
    // Validates, opens the channel, starts the transfer program, identifies the memories,
    // does work and shuts down; logs title + " STARTED" first.
    bool serviceRun(const QString &title, const std::function<bool()> &work);
    bool compareImage(const QX_Program &entry, uint8_t *buffer);
    // The first address in [offset, offset + length) of the entry's range where the instrument
    // differs from image, reading it; false when a read failed.
    bool firstDifferenceIn(const QX_Program &entry, const QByteArray &image, int32_t offset, int32_t length, uint8_t *buffer,
                           ImageComparison &comparison);
    // The instrument's CRC-32 of a range into TargetRangeCrc; false (logged) when it failed.
    bool requestRangeCrc(int32_t address, int32_t length);
    bool restore(const QByteArray &data, const QString &name, int32_t address, const QString &backupFile);
    bool openChannel();
    QString initString() const;
    bool uploadTransferProgram();
    bool identifyFlashMemories();
    // Identification, read-back, erase and programming.
    bool updateFlash();
    // Closes the channel and logs how long the run took, named process.
    void finishRun(int startSecond, const QString &process = QStringLiteral("Firmware Upload Process"));
    int wholeSecondOfDay() const;
    // The memory that holds [start, end): the last in list order, or none.
    const QX_Memory *memoryHolding(int32_t start, int32_t end) const;
    bool readBackEntry(const QX_Download &entry, uint8_t *buffer);
    // Reads the entry's range into a fresh output until it matches the instrument's CRC-32,
    // where the transfer program answers it (Timeouts::ReadBackRereads times more at most);
    // false, logged and with a code, when it never does or a read fails. freshOutput gives
    // the output of each read, or nullptr after recording why there is none.
    bool readChecked(const QX_Download &entry, const QString &action, uint8_t *buffer,
                     const std::function<QIODevice *()> &freshOutput);
    // Reads the entry's range once into out, summing it into crc; false on a failure.
    bool readRange(const QX_Download &entry, const QString &action, QIODevice &out, uint8_t *buffer, Crc32 &crc);
    bool fileFailure(const QString &path, const QString &why);
    // readBackEntry for a copy saved by an update cut short, on the same instrument.
    bool readBesideSavedCopy(const QX_Download &entry, const QString &action, uint8_t *buffer);
    // Tells the layer what the erase and program passes will do, with every memory, range and
    // image they use; nothing when one of them lies in no memory (those passes then fail).
    void announceFlashPlan();
    // The image's checksums once its 8-bit sum matched: the CRC-32 too, where the transfer
    // program answers it. False (logged, and with a code) when it does not match.
    bool verifyImageCrc(const QX_Program &entry, ImageCheck &check);
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
    bool m_fullUpdate = false;
    std::vector<ImageCheck> m_imageChecks;
    std::vector<ImageComparison> m_comparisons;
    std::optional<std::pair<int32_t, int32_t>> m_restoredUnits;
    bool m_rangeCrcOffered = false;
    int m_readBackRereads = 0;
    QStringList m_notices;
    int m_highestLineRate = 0;
    QString m_openFailureReason;
    EngineClock m_clock = EngineClock::system();
    std::unique_ptr<ApplicationLayer> AppLayer;
    QString m_lastLogLine;
    QString m_failureLine;
    bool m_eraseBegan = false;
    std::vector<ChipCodes> m_identifiedChips;
};
