#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// The `@` mention the cursor is in: an `@` at the start of a word, then a path typed so far
// (quoted as `@"…"` when it holds spaces). The completion list searches for its query and
// replaces the whole token with the chosen path.
namespace MentionToken {

struct Token {
    // Where the `@` is, and how far the token reaches (past the cursor, to the end of the word).
    qsizetype start = 0;
    qsizetype length = 0;
    // What was typed between the `@` (and its quote) and the cursor.
    QString query;

    friend bool operator==(const Token &, const Token &) = default;
};

std::optional<Token> at(QStringView line, qsizetype cursor);
// What goes in for a chosen entry: `@path`, a folder with its slash so that typing goes on
// inside it, and quotes around a path with white space.
QString insertion(const QString &path, bool isFolder);

} // namespace MentionToken
