#pragma once

#include <QDir>
#include <QString>

// Where PocketSphinx's US English model is (Debian's pocketsphinx-en-us) and whether it is whole:
// plain file checks, which need neither PocketSphinx nor the speech module loaded.
namespace PocketSphinxModel {

// TARVEL_POCKETSPHINX_MODEL when set, else where the package puts it.
QString directory();
QString acousticModel(const QDir &folder);
QString languageModel(const QDir &folder);
QString dictionary(const QDir &folder);
// Empty when the model's files are all there and whole.
QString unavailableReason();

} // namespace PocketSphinxModel
