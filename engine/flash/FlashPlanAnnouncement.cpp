// What the erase and program passes will do, told to the layer before the first erase.
#include "engine/QX_UploadProcess.h"

#include <algorithm>

void QX_UploadProcess::announceFlashPlan()
{
    FlashPlan plan;
    plan.architecture = static_cast<uint8_t>(ArchitectureIndex);
    for (const QX_Memory &memory : Memories)
        plan.memories.push_back({memory.StartAddress(), memory.Length(), memory.FlashnameIndex()});
    for (const QX_Erase &erase : Erases) {
        const QX_Memory *memory = memoryHolding(erase.EraseAddress(), erase.EndAddress());
        if (!memory)
            return;
        plan.erases.push_back({erase.EraseAddress(), erase.Length(), memory->FlashnameIndex()});
    }
    for (const QX_Program &entry : Programs) {
        const QX_Memory *memory = memoryHolding(entry.LoadAddress(), entry.EndAddress());
        if (!memory)
            return;
        plan.images.push_back({entry.LoadAddress(), imageLength(entry), memory->FlashnameIndex(),
                               [this, &entry](int32_t offset, int32_t count) {
                                   QByteArray bytes(std::max(count, 0), '\0');
                                   const int32_t n = readImage(entry, reinterpret_cast<uint8_t *>(bytes.data()), count, offset);
                                   bytes.resize(std::clamp<int32_t>(n, 0, count));
                                   return bytes;
                               }});
    }
    AppLayer->AnnounceFlashPlan(plan);
}
