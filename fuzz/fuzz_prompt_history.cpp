#include "core/Clock.h"
#include "editing/PromptHistory.h"
#include "fuzz/FuzzSupport.h"

// The prompt history's file: written by Tarvel, but a person or another tool may have changed
// it. What decodes keeps within the bounds, is written in a form that reads back the same, and
// can be searched and recalled.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = Fuzz::bytes(data, size);
    QList<PromptHistoryEntry> entries;
    try {
        entries = PromptHistory::decode(input);
    } catch (const TarvelError &) {
        return 0;
    }
    Fuzz::require(entries.size() <= PromptHistory::maximumEntries, "no more entries than the bound");
    const QByteArray written = PromptHistory::encode(entries);
    Fuzz::require(written.size() <= PromptHistory::maximumBytes, "no more bytes than the bound");
    QList<PromptHistoryEntry> reread;
    try {
        reread = PromptHistory::decode(written);
    } catch (const TarvelError &error) {
        std::fprintf(stderr, "%s\n", qPrintable(error.description()));
        Fuzz::require(false, "a written history decodes");
    }
    Fuzz::require(PromptHistory::encode(reread) == written, "a written history reads back the same");
    for (const PromptHistoryEntry &entry : reread)
        Fuzz::require(!entry.text.trimmed().isEmpty() && entry.date.isValid(),
                      "entries have text and a date");

    // The store reads the same bytes from its file, and searches and recalls from them.
    const QString path = Fuzz::writeScratchFile(QStringLiteral("History/prompts.json"), input);
    const PromptHistory history(path, Clock::system());
    Fuzz::require(history.entries().size() == entries.size(), "the store reads what decode reads");
    const std::optional<QString> cwd = entries.isEmpty() ? std::nullopt : entries.constFirst().cwd;
    history.prompts(cwd);
    history.search(entries.isEmpty() ? QStringLiteral("fix") : entries.constFirst().text.left(6), cwd, 10);
    return 0;
}
