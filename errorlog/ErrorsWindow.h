#pragma once

#include <QWidget>

class ErrorLogManager;
class QTimer;
class QVBoxLayout;
class UserDefaults;

// Lists the error log, newest first, with a remove button per entry. Follows the
// log's changes while it is open, and keeps its frame for the next time it opens.
class ErrorsWindow final : public QWidget {
    Q_OBJECT

public:
    ErrorsWindow(ErrorLogManager &errorLog, UserDefaults &defaults, const QString &applicationDisplayName,
                 QWidget *parent = nullptr);
    ~ErrorsWindow() override;

    // The user-defaults key of the remembered frame.
    static const QString frameKey;

    void rebuildRows();

protected:
    void moveEvent(QMoveEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void restoreFrame();
    void saveFrame();

    ErrorLogManager &m_errorLog;
    UserDefaults &m_defaults;
    QVBoxLayout *m_entries = nullptr;
    QTimer *m_frameSaveTimer = nullptr;
};
