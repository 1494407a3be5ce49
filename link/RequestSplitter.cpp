#include "link/RequestSplitter.h"

#include "link/AdaptiveFrameSize.h"
#include "link/Protocol.h"

#include <algorithm>

namespace {
using Request = RequestPipeline::Request;
using Kind = RequestPipeline::Kind;

// Bytes from the start of the block to each part: the fewest parts within largestData each.
int partBytes(int count, int largestData)
{
    const int parts = (count + largestData - 1) / largestData;
    const int even = (count + parts - 1) / parts;
    const int granule = AdaptiveFrameSize::Granule;
    return std::min(count, (even + granule - 1) / granule * granule);
}

Request programPart(const Request &block, int offset, int bytes)
{
    Protocol::Reader fields(block.payload);
    fields.u32(); // the block's address
    const uint8_t architecture = fields.u8();
    const uint8_t flash = fields.u8();
    const QByteArray data = fields.rest().mid(offset, bytes);
    const auto address = int32_t(uint32_t(block.address) + uint32_t(offset));
    return {Kind::Program, Protocol::Program,
            Protocol::Writer().u32(uint32_t(address)).u8(architecture).u8(flash).bytes(data).done(),
            block.expectedReplyBytes, architecture, address, bytes};
}

Request readPart(const Request &read, int offset, int bytes)
{
    const auto address = int32_t(uint32_t(read.address) + uint32_t(offset));
    return {Kind::Read, Protocol::Read,
            Protocol::Writer().u8(read.architecture).u32(uint32_t(address)).u32(uint32_t(bytes)).done(), bytes + 2,
            read.architecture, address, bytes};
}
} // namespace

QList<Request> RequestSplitter::split(const Request &request, int largestData)
{
    const bool divisible = request.kind == Kind::Program || request.kind == Kind::Read;
    if (!divisible || request.count <= largestData)
        return {request};
    const int step = partBytes(request.count, largestData);
    QList<Request> parts;
    for (int offset = 0; offset < request.count; offset += step) {
        const int bytes = std::min(step, request.count - offset);
        parts << (request.kind == Kind::Program ? programPart(request, offset, bytes) : readPart(request, offset, bytes));
    }
    return parts;
}

QByteArray RequestSplitter::joinedRead(const QList<QByteArray> &answers)
{
    QByteArray data;
    for (const QByteArray &answer : answers) {
        Protocol::Reader part(answer);
        if (part.u16() != Protocol::Status::Ok || !part.complete())
            return answer;
        data += part.rest();
    }
    return Protocol::Writer().u16(Protocol::Status::Ok).bytes(data).done();
}
