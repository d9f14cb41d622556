#include "quicktasks/OutputFile.h"

#include <QFile>

namespace OutputFile {

bool append(const QString &path, QByteArrayView bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append,
                   QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return false;
    return bytes.isEmpty() || file.write(bytes.data(), bytes.size()) == bytes.size();
}

} // namespace OutputFile
