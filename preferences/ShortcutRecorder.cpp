#include "preferences/ShortcutRecorder.h"

#include "shortcuts/KeyboardShortcuts.h"
#include "shortcuts/ShortcutRecording.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Control:
    case Qt::Key_Shift:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
        return true;
    default:
        return false;
    }
}

} // namespace

ShortcutRecorder::ShortcutRecorder(KeyboardShortcuts &shortcuts, ShortcutName name, QWidget *parent)
    : QWidget(parent)
    , m_shortcuts(shortcuts)
    , m_name(std::move(name))
{
    setFocusPolicy(Qt::ClickFocus);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    auto *row = new QHBoxLayout;
    row->setSpacing(2);
    m_button = new QPushButton(this);
    m_button->setObjectName(QStringLiteral("ShortcutRecorderButton"));
    m_button->setCheckable(true);
    m_button->setMinimumWidth(150);
    m_button->setFocusPolicy(Qt::NoFocus);
    m_clear = new QToolButton(this);
    m_clear->setObjectName(QStringLiteral("ShortcutRecorderClear"));
    m_clear->setText(QStringLiteral("\u00d7"));
    m_clear->setToolTip(QStringLiteral("Clear shortcut"));
    m_clear->setAutoRaise(true);
    m_clear->setFocusPolicy(Qt::NoFocus);
    row->addWidget(m_button, 1);
    row->addWidget(m_clear);
    column->addLayout(row);
    m_message = new QLabel(this);
    m_message->setObjectName(QStringLiteral("ShortcutRecorderMessage"));
    m_message->setWordWrap(true);
    m_message->setTextFormat(Qt::PlainText);
    m_message->hide();
    column->addWidget(m_message);

    connect(m_button, &QPushButton::clicked, this, [this] {
        if (m_recording)
            stopRecording();
        else
            startRecording();
    });
    connect(m_clear, &QToolButton::clicked, this, [this] {
        stopRecording();
        store(std::nullopt);
    });
    connect(&m_shortcuts, &KeyboardShortcuts::shortcutByNameDidChange, this, [this](const QString &changed) {
        if (changed == m_name.rawValue)
            refresh();
    });
    refresh();
}

void ShortcutRecorder::setName(const ShortcutName &name)
{
    if (name == m_name)
        return;
    stopRecording();
    m_name = name;
    m_problem.clear();
    refresh();
}

ShortcutRecorder::~ShortcutRecorder()
{
    // A row removed while it records must not leave the recording announced.
    stopRecording();
}

void ShortcutRecorder::startRecording()
{
    const bool wasRecording = std::exchange(m_recording, true);
    m_problem.clear();
    setFocus(Qt::MouseFocusReason);
    // While recording, every key goes here, including combinations bound elsewhere.
    grabKeyboard();
    refresh();
    if (!wasRecording)
        Q_EMIT recordingChanged(true);
}

void ShortcutRecorder::stopRecording()
{
    if (!m_recording)
        return;
    m_recording = false;
    releaseKeyboard();
    refresh();
    Q_EMIT recordingChanged(false);
}

void ShortcutRecorder::setRemark(const QString &remark)
{
    m_remark = remark;
    refresh();
}

QString ShortcutRecorder::message() const
{
    return m_message->isVisible() ? m_message->text() : QString();
}

void ShortcutRecorder::refresh()
{
    const std::optional<Shortcut> current = m_shortcuts.getShortcut(m_name);
    m_button->setChecked(m_recording);
    if (m_recording)
        m_button->setText(QStringLiteral("Type shortcut\u2026"));
    else
        m_button->setText(current ? m_shortcuts.displayText(*current) : QStringLiteral("Record Shortcut"));
    m_clear->setEnabled(current.has_value());
    const QString shown = m_problem.isEmpty() ? m_remark : m_problem;
    // A refused combination stands out; a standing remark reads like the notes around it.
    QPalette palette = m_message->palette();
    palette.setColor(QPalette::WindowText, m_problem.isEmpty()
                                               ? this->palette().color(QPalette::PlaceholderText)
                                               : QColor(0xb0, 0x2a, 0x20));
    m_message->setPalette(palette);
    m_message->setForegroundRole(QPalette::WindowText);
    m_message->setText(shown);
    m_message->setVisible(!shown.isEmpty());
}

bool ShortcutRecorder::event(QEvent *event)
{
    // While recording, no shortcut of the window (its Close, Ctrl+W) takes a combination first.
    if (m_recording && event->type() == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    return QWidget::event(event);
}

void ShortcutRecorder::keyPressEvent(QKeyEvent *event)
{
    if (!m_recording) {
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
    const int key = event->key();
    const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
    if (isModifierKey(key))
        return; // wait for the key that comes with them
    if (modifiers == Qt::NoModifier && key == Qt::Key_Escape) {
        stopRecording();
        return;
    }
    if (modifiers == Qt::NoModifier && (key == Qt::Key_Backspace || key == Qt::Key_Delete)) {
        stopRecording();
        store(std::nullopt);
        return;
    }
    const std::optional<Shortcut> candidate = Shortcut::fromQtKey(key, event->modifiers());
    if (!candidate) {
        showMessage(QStringLiteral("That key cannot be part of a shortcut."));
        return;
    }
    if (candidate == m_shortcuts.getShortcut(m_name)) {
        stopRecording();
        return;
    }
    const ShortcutRecordingOutcome outcome = ShortcutRecording::evaluate(*candidate, m_name, m_shortcuts);
    if (!outcome.accepted) {
        QApplication::beep();
        showMessage(outcome.message);
        return;
    }
    stopRecording();
    store(candidate);
}

void ShortcutRecorder::focusOutEvent(QFocusEvent *event)
{
    stopRecording();
    QWidget::focusOutEvent(event);
}

void ShortcutRecorder::store(const std::optional<Shortcut> &shortcut)
{
    if (registration) {
        const QString problem = registration(shortcut);
        if (!problem.isEmpty()) {
            showMessage(problem);
            return;
        }
    }
    m_problem.clear();
    m_shortcuts.setShortcut(shortcut, m_name);
    refresh();
}

void ShortcutRecorder::showMessage(const QString &message)
{
    m_problem = message;
    refresh();
}
