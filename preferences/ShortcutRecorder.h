#pragma once

#include "shortcuts/Shortcut.h"
#include "shortcuts/ShortcutName.h"

#include <QWidget>

#include <functional>
#include <optional>

class KeyboardShortcuts;
class QLabel;
class QPushButton;
class QToolButton;

// The shortcut of one name: shows it, records the next key combination pressed after a click,
// clears it with its × button, and says in a line below why a combination was not taken.
// Escape ends recording without a change; Backspace or Delete alone clears.
class ShortcutRecorder final : public QWidget {
    Q_OBJECT

public:
    ShortcutRecorder(KeyboardShortcuts &shortcuts, ShortcutName name, QWidget *parent = nullptr);
    ~ShortcutRecorder() override;

    // For a system-wide name: asked before a combination (or none) is stored. Returns why it cannot
    // be used now ("" when it can); nothing is stored then.
    std::function<QString(const std::optional<Shortcut> &)> registration;

    const ShortcutName &name() const { return m_name; }
    void setName(const ShortcutName &name);
    bool isRecording() const { return m_recording; }
    void startRecording();
    // A standing remark, shown while no recording problem is (e.g. why the key cannot work here).
    void setRemark(const QString &remark);
    QString message() const;
    // Shows what is stored now.
    void refresh();

Q_SIGNALS:
    // Recording began or ended: while it runs, the keys are the recorder's.
    void recordingChanged(bool recording);

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void stopRecording();
    void store(const std::optional<Shortcut> &shortcut);
    void showMessage(const QString &message);

    KeyboardShortcuts &m_shortcuts;
    ShortcutName m_name;
    QPushButton *m_button = nullptr;
    QToolButton *m_clear = nullptr;
    QLabel *m_message = nullptr;
    QString m_remark;
    QString m_problem;
    bool m_recording = false;
};
