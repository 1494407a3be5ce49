#pragma once
// What an update will do to the flash, announced to the application layer before the first
// erase: the memories with their chips, the ranges it erases and the images it programs, in
// the order the passes take them. A layer that can learn what the flash holds already
// (docs/protocol.md, RangeCrc) uses it to skip the erase units and blocks that hold their
// final content; the engine's requests and log stay the same either way.
#include <QByteArray>
#include <cstdint>
#include <functional>
#include <vector>

struct FlashPlan {
    struct Memory {
        int32_t start;
        int32_t length;
        int32_t flashIndex;
    };
    struct Erase {
        int32_t address;
        int32_t length;
        int32_t flashIndex;
    };
    struct Image {
        int32_t address;
        int32_t length;
        int32_t flashIndex;
        // Up to count bytes of the image from offset on. Valid only during the call that
        // announces the plan: images are read there and then, one after another, so that
        // none has to be held in memory beside the package's own copy.
        std::function<QByteArray(int32_t offset, int32_t count)> read;
    };
    uint8_t architecture = 0;
    std::vector<Memory> memories;
    std::vector<Erase> erases;
    std::vector<Image> images;
};
