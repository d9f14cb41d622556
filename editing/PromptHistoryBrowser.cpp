#include "editing/PromptHistoryBrowser.h"

void PromptHistoryBrowser::setPrompts(QStringList newestFirst)
{
    m_prompts = std::move(newestFirst);
    m_index = -1;
}

bool PromptHistoryBrowser::isShowingRecalled(const QString &currentText) const
{
    return m_index >= 0 && m_index < m_prompts.size() && currentText == m_prompts.at(m_index);
}

std::optional<QString> PromptHistoryBrowser::older(const QString &currentText)
{
    if (!isShowingRecalled(currentText)) {
        m_index = -1;
        if (!currentText.isEmpty() || m_prompts.isEmpty())
            return std::nullopt;
    }
    if (m_index + 1 >= m_prompts.size())
        return std::nullopt;
    return m_prompts.at(++m_index);
}

std::optional<QString> PromptHistoryBrowser::newer(const QString &currentText)
{
    if (!isShowingRecalled(currentText)) {
        m_index = -1;
        return std::nullopt;
    }
    if (--m_index < 0)
        return QString();
    return m_prompts.at(m_index);
}
