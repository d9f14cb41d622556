#include "platform/SpeechEngine.h"
#include "platform/linux/PocketSphinxModel.h"
#include "platform/linux/SpeechModule.h"

std::unique_ptr<SpeechEngine> SpeechEngine::createBuiltIn()
{
    return SpeechModule::load().createBuiltInEngine();
}

QString SpeechEngine::builtInUnavailableReason()
{
    return PocketSphinxModel::unavailableReason();
}
