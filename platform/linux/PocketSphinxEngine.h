#pragma once

#include "platform/SpeechEngine.h"

#include <QString>

struct cmd_ln_s;
struct ps_decoder_s;

// PocketSphinx with its US English model (Debian's pocketsphinx-en-us). The model is loaded
// when the engine is made and released when it is destroyed.
class PocketSphinxEngine final : public SpeechEngine {
public:
    // The model folder: TARVEL_POCKETSPHINX_MODEL when set, else where the package puts it.
    static QString modelDirectory();
    // Empty when the model's files are all there.
    static QString unavailableReason();

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
