#include "tools/package-builder/PackageBuilder.h"

#include <QDir>
#include <QFile>
#include <zip.h>

namespace {
bool failWith(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

QString zipError(zip_t *archive)
{
    return QString::fromLocal8Bit(zip_strerror(archive));
}
} // namespace

bool PackageBuilder::write(const QString &path, QString *error) const
{
    int code = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!archive) {
        zip_error_t reason;
        zip_error_init_with_code(&reason, code);
        const QString text = QStringLiteral("cannot create %1: %2").arg(path, QString::fromLocal8Bit(zip_error_strerror(&reason)));
        zip_error_fini(&reason);
        return failWith(error, text);
    }
    for (const auto &[name, data] : m_members) {
        // libzip reads the bytes when the archive is closed, so they must outlive this loop:
        // m_members owns them.
        zip_source_t *source = zip_source_buffer(archive, data.constData(), static_cast<zip_uint64_t>(data.size()), 0);
        if (!source || zip_file_add(archive, name.toLatin1().constData(), source, ZIP_FL_OVERWRITE | ZIP_FL_ENC_RAW) < 0) {
            if (source)
                zip_source_free(source);
            const QString text = QStringLiteral("cannot add %1: %2").arg(name, zipError(archive));
            zip_discard(archive);
            return failWith(error, text);
        }
    }
    const QByteArray comment = m_comment.toUtf8(); // read back as UTF-8 since it is valid UTF-8
    if (!comment.isEmpty() && zip_set_archive_comment(archive, comment.constData(), static_cast<zip_uint16_t>(comment.size())) < 0) {
        const QString text = QStringLiteral("cannot set the comment: %1").arg(zipError(archive));
        zip_discard(archive);
        return failWith(error, text);
    }
    if (zip_close(archive) < 0) {
        const QString text = QStringLiteral("cannot write %1: %2").arg(path, zipError(archive));
        zip_discard(archive);
        return failWith(error, text);
    }
    return true;
}

bool PackageBuilder::fromFolder(const QString &folder, const QString &outPath, const QString &comment, QString *error)
{
    const QDir dir(folder);
    if (!dir.exists())
        return failWith(error, QStringLiteral("no such folder: %1").arg(folder));
    PackageBuilder builder;
    builder.setComment(comment);
    for (const QFileInfo &info : dir.entryInfoList(QDir::Files, QDir::Name)) {
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly))
            return failWith(error, QStringLiteral("cannot read %1: %2").arg(info.filePath(), file.errorString()));
        builder.addMember(info.fileName(), file.readAll());
    }
    return builder.write(outPath, error);
}
