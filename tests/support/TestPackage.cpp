#include "tests/support/TestPackage.h"

#include "tools/package-builder/PackageBuilder.h"

#include <stdexcept>

TestPackage::TestPackage(const QString &fileName, const QString &folder)
    : m_path(folder.isEmpty() ? m_dir.filePath(fileName) : folder + QLatin1Char('/') + fileName)
{
}

TestPackage &TestPackage::member(const QString &name, const QByteArray &data)
{
    m_members.insert(name, data);
    return *this;
}

TestPackage &TestPackage::comment(const QString &text)
{
    m_comment = text;
    return *this;
}

Package TestPackage::write()
{
    PackageBuilder builder;
    for (auto it = m_members.cbegin(); it != m_members.cend(); ++it)
        builder.addMember(it.key(), it.value());
    builder.setComment(m_comment);
    QString error;
    if (!builder.write(m_path, &error))
        throw std::runtime_error(error.toStdString());
    return Package(m_path);
}

QByteArray TestPackage::pattern(int count, int seed)
{
    QByteArray bytes(count, '\0');
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<char>((i * 7 + seed) & 0xFF);
    return bytes;
}
