// Finding the flash memory that holds an address range, shared by the erase and program
// passes.
#include "engine/QX_UploadProcess.h"

const QX_Memory *QX_UploadProcess::memoryHolding(int32_t start, int32_t end) const
{
    // Signed comparisons, bounds inclusive; the last memory in list order wins. A memory
    // that crosses 2^31 therefore never holds anything, while one at the top of the address
    // space (its end wrapped to 0) holds the ranges inside it.
    const QX_Memory *chosen = nullptr;
    for (const QX_Memory &memory : Memories)
        if (memory.StartAddress() <= start && memory.EndAddress() >= end)
            chosen = &memory;
    return chosen;
}
