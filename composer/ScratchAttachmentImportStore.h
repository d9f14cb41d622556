#pragma once

#include "core/PromptAttachment.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

class QImage;
class QMimeData;

// Pasted images become PNG files in "ImportedAttachments" under the base folder, so that
// a backend can be handed a path. Those copies are Tarvel's own and may be deleted again.
namespace ScratchAttachmentImportStore {

inline constexpr auto importFolderName = u"ImportedAttachments";

// Where imported files go; not created by this call.
QString importFolder();

// "Pasted Image 2026-03-01 09.15.42 3F2A9C.png": the local time of at, and a random
// suffix so that two pastes in the same second differ.
QString uniqueFilename(const QDateTime &at = QDateTime::currentDateTime());

// Writes the image as a private PNG file and returns it as a managed attachment.
// Throws TarvelError when the image is null or cannot be encoded, SystemError when the
// folder or the file cannot be written.
PromptAttachment importImage(const QImage &image);

// The image carried by clipboard or drag data (an image object or encoded image bytes),
// imported as above. Nothing when the data holds no image; throws TarvelError when it
// holds one that cannot be read, and whatever importImage(QImage) throws.
std::optional<PromptAttachment> importImage(const QMimeData *data);

// Deletes the files of the managed copies among the attachments; files the user attached
// are never touched. Failures are ignored: a leftover copy is harmless.
void cleanup(const QList<PromptAttachment> &attachments);

} // namespace ScratchAttachmentImportStore
