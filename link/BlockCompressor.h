#pragma once
// Program requests as they go on the line: the blocks of one image compressed as one raw
// deflate stream (RFC 1951: no zlib header, no trailer), with a full flush after each block,
// and sent as ProgramPacked. A full flush ends a block's data on a byte boundary and leaves
// nothing for the next block to refer back to, so every block inflates on its own: the
// instrument may carry blocks out in the order they arrive (one sent again after later ones),
// a block sent again goes as it was sent, and a block that does not shrink goes as a plain
// Program request without disturbing the ones after it. The block size is whatever each
// request carries. The engine never sees any of this: its blocks and its 8-bit checksum stay
// on the uncompressed bytes.
#include <QByteArray>
#include <cstdint>
#include <memory>

struct z_stream_s;

class BlockCompressor {
public:
    BlockCompressor();
    ~BlockCompressor();
    BlockCompressor(const BlockCompressor &) = delete;
    BlockCompressor &operator=(const BlockCompressor &) = delete;

    struct Request {
        uint8_t type;
        QByteArray payload;
    };

    // The next blocks belong to a new image: a new stream.
    void startImage();
    // The request to send for a Program request's payload: ProgramPacked, or the Program
    // request itself when its data does not shrink.
    Request pack(const QByteArray &program);

private:
    QByteArray deflated(const QByteArray &data);

    std::unique_ptr<z_stream_s> m_stream;
};
