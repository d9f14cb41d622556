#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Up and Down through a folder's earlier prompts, newest first, as a shell steps through its
// history. Browsing starts only from an empty composer and lasts while the text is the recalled
// prompt as it was shown: once the user edits it, the keys move the cursor again.
class PromptHistoryBrowser final {
public:
    // The prompts to step through, newest first; ends any browsing.
    void setPrompts(QStringList newestFirst);
    bool isBrowsing() const { return m_index >= 0; }

    // The text that an older prompt replaces the current one with, or nothing when Up is not
    // for the history now (the text was edited, or there is nothing older).
    std::optional<QString> older(const QString &currentText);
    // The newer prompt, or the empty text that browsing started from after the newest.
    std::optional<QString> newer(const QString &currentText);

private:
    bool isShowingRecalled(const QString &currentText) const;

    QStringList m_prompts;
    qsizetype m_index = -1;
};
