#pragma once
// The application layer: everything the engine says to the instrument goes through it.
// A fresh object is created for each run by an ApplicationLayerFactory.
//
// OpenChannel and UploadTransferProgram are synchronous to the engine, but take time on the
// line: the layer waits for them through the engine's wait (EngineWait), the one place where
// the program sleeps, so that Cancel ends them at once. Every other operation returns at once.
// Each asynchronous request (QueryManufacturerCode,
// ProgrammingVoltageOn/Off, FlashDelete, Restart, ProgramBlock, ReadMemory, RequestChecksum,
// RequestRangeCrc) is answered by exactly one Trovex_Response or Trovex_Error signal, raised on the engine's
// thread from the event loop, never from inside the request call, and only after the getters
// hold the answer's values.
#include "engine/FlashPlan.h"

#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>

class ApplicationLayer : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~ApplicationLayer() override = default;

    virtual void UploadTransferProgram(const uint8_t *data, int32_t length, int32_t loadAddress,
                                       int32_t startAddress, int32_t &result) = 0;
    virtual void OpenChannel(const QString &initString) = 0;
    virtual void QueryManufacturerCode(int32_t address, uint8_t architecture, uint8_t flashIndex) = 0;
    virtual void ProgrammingVoltageOn() = 0;
    virtual void ProgrammingVoltageOff() = 0;
    virtual void FlashDelete(uint8_t architecture, uint8_t flashIndex, int32_t address, int32_t length) = 0;
    virtual void Restart() = 0;
    virtual void ProgramBlock(int32_t address, int16_t count, uint8_t architecture, uint8_t flashIndex,
                              const uint8_t *data) = 0;
    // A hint, no request: the ProgramBlock or ReadMemory requests from now on cover the length
    // bytes at address (one image, one range read back). A layer that sends requests ahead
    // keeps within it and answers the range's last block only once the instrument has answered
    // every block of it. Raises no event; a layer may ignore it.
    virtual void AnnounceRange(int32_t /*address*/, int32_t /*length*/) {}
    virtual void GetManufacturerCode(int32_t &code) = 0;
    virtual void ReadMemory(uint8_t architecture, int32_t address, int32_t count) = 0;
    virtual void RequestChecksum(uint8_t architecture, int32_t address, int32_t length) = 0;
    virtual void GetDeviceCode(int32_t &code) = 0;
    virtual void GetStatus(int16_t &status) = 0;
    virtual void GetChecksum(int32_t &checksum) = 0;
    virtual void GetEraseResult(int32_t &address, int16_t &status) = 0;
    virtual void GetProgramResult(int32_t &address, int16_t &status) = 0;
    virtual void GetReadLength(int32_t &length) = 0;
    // Copies the bytes of the last read (GetReadLength of them) to data.
    virtual void GetReadData(uint8_t *data) = 0;
    // Whether the transfer program that runs answers the CRC-32 of a flash range (known once
    // UploadTransferProgram has returned 0). Without it the engine never asks for one.
    virtual bool OffersRangeCrc() const = 0;
    virtual void RequestRangeCrc(uint8_t architecture, int32_t address, int32_t length) = 0;
    virtual void GetRangeCrc(uint32_t &crc) = 0;
    // A hint, no request: what the update will erase and program, announced once before the
    // erase pass. A layer that can may skip the work whose result the flash holds already; it
    // still answers every request as the instrument would. Raises no event; a layer may
    // ignore it.
    virtual void AnnounceFlashPlan(const FlashPlan & /*plan*/) {}
    virtual void Shutdown() = 0;
    virtual void CloseChannel() = 0;
    virtual void GetErrorCode(int16_t &code) = 0;
    virtual void GetErrorText(QString &text) = 0;

signals:
    void Trovex_Response(int32_t enumResponseID);
    void Trovex_Error(int16_t iLastError);
};

// The engine's wait, handed to the layer of a run: sleeps in the event loop until done() holds
// or the user cancels; true when done() holds, false when the run was cancelled first.
using EngineWait = std::function<bool(const std::function<bool()> &done)>;

// Creates the application layer of one run; tests replace it with a scripted one.
using ApplicationLayerFactory = std::function<std::unique_ptr<ApplicationLayer>(const EngineWait &wait)>;
