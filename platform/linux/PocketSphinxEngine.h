#pragma once

#include "platform/SpeechEngine.h"

#include <QString>

struct cmd_ln_s;
struct ps_decoder_s;

// PocketSphinx with its US English model (PocketSphinxModel). The model is loaded when the engine
// is made and released when it is destroyed. Part of the speech module.
class PocketSphinxEngine final : public SpeechEngine {
public:
    // Loads the model. Throws SpeechRecognizerError when it cannot.
    PocketSphinxEngine();
    ~PocketSphinxEngine() override;
    PocketSphinxEngine(const PocketSphinxEngine &) = delete;
    PocketSphinxEngine &operator=(const PocketSphinxEngine &) = delete;

    void beginUtterance() override;
    QString feed(const qint16 *samples, qsizetype count) override;
    QString finishUtterance(std::stop_token stop) override;

private:
    QString hypothesis() const;

    cmd_ln_s *m_config = nullptr;
    ps_decoder_s *m_decoder = nullptr;
    bool m_inUtterance = false;
};
