#pragma once
// What a transfer program says it can do beyond the requests every one of them knows, from
// its answer to the Abilities question. A transfer program that does not know the question
// (Unknown) can do none of it, and the update runs as it always did.
#include "link/Protocol.h"

#include <QByteArray>
#include <algorithm>
#include <cstdint>

struct InstrumentAbilities {
    int highestRate = 0;         // the fastest line rate it takes with SwitchRate; 0: it does not switch
    bool packedBlocks = false;   // it takes ProgramPacked
    bool rangeChecksums = false; // it takes RangeCrc
    int receiveBuffer = 0;       // wire bytes it keeps of requests waiting behind the one it works on; 0: two frames

    static InstrumentAbilities fromAnswer(const QByteArray &payload)
    {
        Protocol::Reader answer(payload);
        const uint16_t status = answer.u16();
        const uint32_t highest = answer.u32();
        const uint32_t abilities = answer.u32();
        const uint32_t buffer = answer.u32();
        if (status != Protocol::Status::Ok || !answer.complete())
            return {};
        return {(abilities & Protocol::Ability::SwitchRate) ? int(std::min<uint32_t>(highest, INT32_MAX)) : 0,
                (abilities & Protocol::Ability::PackedBlocks) != 0, (abilities & Protocol::Ability::RangeChecksums) != 0,
                int(std::min<uint32_t>(buffer, INT32_MAX))};
    }
};
