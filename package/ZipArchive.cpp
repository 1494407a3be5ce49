#include "package/ZipArchive.h"

#include <QFile>
#include <zip.h>

ZipArchive::ZipArchive(const QString &path)
{
    if (path.isEmpty())
        return;
    int error = 0;
    m_zip = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &error);
}

ZipArchive::~ZipArchive()
{
    if (m_zip)
        zip_discard(m_zip);
}

QByteArray ZipArchive::comment() const
{
    if (!m_zip)
        return {};
    int length = 0;
    const char *text = zip_get_archive_comment(m_zip, &length, ZIP_FL_ENC_RAW);
    return text && length > 0 ? QByteArray(text, length) : QByteArray();
}

std::optional<int64_t> ZipArchive::find(const QString &name) const
{
    if (!m_zip || name.isEmpty())
        return std::nullopt;
    const zip_int64_t index = zip_name_locate(m_zip, name.toLatin1().constData(), ZIP_FL_ENC_RAW);
    if (index < 0)
        return std::nullopt;
    return index;
}

std::optional<int64_t> ZipArchive::sizeOf(int64_t index) const
{
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (!m_zip || zip_stat_index(m_zip, static_cast<zip_uint64_t>(index), 0, &stat) != 0 || !(stat.valid & ZIP_STAT_SIZE))
        return std::nullopt;
    if (stat.size > static_cast<zip_uint64_t>(LargestMember))
        return std::nullopt;
    return static_cast<int64_t>(stat.size);
}

std::optional<QByteArray> ZipArchive::read(int64_t index) const
{
    const std::optional<int64_t> size = sizeOf(index);
    if (!size)
        return std::nullopt;
    zip_file_t *file = zip_fopen_index(m_zip, static_cast<zip_uint64_t>(index), 0);
    if (!file)
        return std::nullopt;
    QByteArray bytes(static_cast<qsizetype>(*size), '\0');
    zip_int64_t total = 0;
    while (total < *size) {
        const zip_int64_t got = zip_fread(file, bytes.data() + total, static_cast<zip_uint64_t>(*size - total));
        if (got <= 0)
            break;
        total += got;
    }
    // One more read must report the end; libzip checks the CRC when the data runs out.
    char extra = 0;
    const bool intact = total == *size && zip_fread(file, &extra, 1) == 0;
    zip_fclose(file);
    if (!intact)
        return std::nullopt;
    return bytes;
}

QList<QPair<QString, int64_t>> ZipArchive::members() const
{
    QList<QPair<QString, int64_t>> list;
    const zip_int64_t count = m_zip ? zip_get_num_entries(m_zip, 0) : 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(m_zip, static_cast<zip_uint64_t>(i), ZIP_FL_ENC_RAW, &stat) == 0 && stat.name)
            list.append({QString::fromLatin1(stat.name), static_cast<int64_t>(stat.size)});
    }
    return list;
}
