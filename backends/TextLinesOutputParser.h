#pragma once

#include "backends/BackendOutputParser.h"

#include <QStringList>

// For backends whose answer is their standard output itself: every line belongs to the answer
// and to the transcript. A cleaner, when given, rewrites each line first; a line it leaves
// blank is dropped.
class TextLinesOutputParser final : public BackendOutputParser {
public:
    using Cleaner = QString (*)(const QString &line);

    explicit TextLinesOutputParser(Cleaner clean = nullptr);

    BackendOutputChange parseLine(QByteArrayView line, QByteArray &transcript) override;
    std::optional<QString> finalResponse() const override;

private:
    Cleaner m_clean;
    QStringList m_lines;
};
