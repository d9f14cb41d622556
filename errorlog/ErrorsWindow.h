#pragma once

#include <QWidget>

class ErrorLogManager;
class QVBoxLayout;

// Lists the error log, newest first, with a remove button per entry. Follows the
// log's changes while it is open.
class ErrorsWindow final : public QWidget {
    Q_OBJECT

public:
    explicit ErrorsWindow(ErrorLogManager &errorLog, const QString &applicationDisplayName,
                          QWidget *parent = nullptr);

    void rebuildRows();

private:
    ErrorLogManager &m_errorLog;
    QVBoxLayout *m_entries = nullptr;
};
