#pragma once

#include <QDialog>

#include <functional>

// Asks once whether to install (or repair) the editor integration. The owner fills in the
// texts from the integration's status, runs it and acts on the answer. Closing the window any
// other way than with its buttons is a plain cancel.
class EditorIntegrationPromptWindow final : public QDialog {
    Q_OBJECT

public:
    enum class Response { install, cancel, cancelAndSuppress };

    EditorIntegrationPromptWindow(const QString &headline, const QString &message,
                                  const QString &revealButtonTitle, std::function<void()> revealAction,
                                  QWidget *parent = nullptr);

    // Shows the window centred and in front, and returns once it is closed.
    Response runModal();
    Response response() const { return m_response; }

private:
    void finishWith(Response response);

    Response m_response = Response::cancel;
    std::function<void()> m_revealAction;
};
