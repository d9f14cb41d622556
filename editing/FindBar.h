#pragma once

#include "editing/TextSearch.h"

#include <QPointer>
#include <QWidget>

class QLabel;
class QLineEdit;
class QTextEdit;
class QTimer;
class QToolButton;

// Find and replace over a composer's text (Ctrl+F): the next and previous match, case and
// whole-word choices, replace one or all. Every match is shaded, the current one selected.
// Return finds the next match, Shift+Return the previous one, Escape closes the bar.
class FindBar final : public QWidget {
    Q_OBJECT

public:
    explicit FindBar(QTextEdit *view, QWidget *parent = nullptr);

    // Matches shaded at most; more are still found and counted.
    static constexpr qsizetype shadedMatches = 2000;

    // Shows the bar with the selection (one line of it) as the text to find, and focuses it.
    void open();
    void closeBar();
    void findNext(bool backward = false);
    void replaceCurrent();
    void replaceAll();

    QLineEdit *findField() const { return m_find; }
    QLineEdit *replaceField() const { return m_replace; }
    QToolButton *caseSensitive() const { return m_caseSensitive; }
    QToolButton *wholeWords() const { return m_wholeWords; }
    QLabel *status() const { return m_status; }
    const QList<TextSearch::Match> &matches() const { return m_matches; }

Q_SIGNALS:
    // Shown or hidden: the panel's height changes.
    void visibilityChanged();

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void search();
    void select(qsizetype match);
    void shadeMatches();
    void showStatus();
    TextSearch::Options options() const;

    QPointer<QTextEdit> m_view;
    QLineEdit *m_find = nullptr;
    QLineEdit *m_replace = nullptr;
    QToolButton *m_caseSensitive = nullptr;
    QToolButton *m_wholeWords = nullptr;
    QLabel *m_status = nullptr;
    QTimer *m_researchTimer = nullptr;
    QList<TextSearch::Match> m_matches;
    qsizetype m_current = -1;
    QString m_replacedNote;
};
