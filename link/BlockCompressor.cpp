#include "link/BlockCompressor.h"

#include "link/Protocol.h"

#include <zlib.h>

namespace {
// Program's fields before the data: address u32, architecture u8, flash number u8.
constexpr qsizetype ProgramHeaderBytes = 6;
// Raw deflate (negative window bits: no zlib wrapper) with zlib's full 32 KiB window; blocks
// never reach back past their own start, so an instrument needs no more than the block.
constexpr int RawDeflateWindowBits = -15;
constexpr int MemoryLevel = 8; // zlib's default
} // namespace

BlockCompressor::BlockCompressor() : m_stream(std::make_unique<z_stream_s>())
{
    // The default level: the higher ones gain well under 1% on firmware and cost twice the time.
    deflateInit2(m_stream.get(), Z_DEFAULT_COMPRESSION, Z_DEFLATED, RawDeflateWindowBits, MemoryLevel, Z_DEFAULT_STRATEGY);
}

BlockCompressor::~BlockCompressor()
{
    deflateEnd(m_stream.get());
}

void BlockCompressor::startImage()
{
    deflateReset(m_stream.get());
}

BlockCompressor::Request BlockCompressor::pack(const QByteArray &program)
{
    const QByteArray data = program.mid(ProgramHeaderBytes);
    const QByteArray packed = deflated(data);
    if (packed.isEmpty() || packed.size() + Protocol::PackedLengthBytes >= data.size())
        return {Protocol::Program, program}; // it does not shrink
    return {Protocol::ProgramPacked, Protocol::Writer()
                                         .bytes(program.left(ProgramHeaderBytes))
                                         .u16(uint16_t(data.size()))
                                         .bytes(packed)
                                         .done()};
}

QByteArray BlockCompressor::deflated(const QByteArray &data)
{
    QByteArray out(qsizetype(deflateBound(m_stream.get(), uLong(data.size()))), '\0');
    m_stream->next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
    m_stream->avail_in = uInt(data.size());
    qsizetype produced = 0;
    do { // a flush may need more room than the bound of the data alone
        if (produced == out.size())
            out.resize(out.size() * 2);
        m_stream->next_out = reinterpret_cast<Bytef *>(out.data() + produced);
        m_stream->avail_out = uInt(out.size() - produced);
        if (deflate(m_stream.get(), Z_FULL_FLUSH) == Z_STREAM_ERROR)
            return {}; // no stream (zlib had no memory for it): the block goes as it is
        produced = out.size() - qsizetype(m_stream->avail_out);
    } while (m_stream->avail_out == 0);
    out.resize(produced);
    return out;
}
