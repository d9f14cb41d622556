#pragma once

#include "core/PromptAttachment.h"

#include <optional>

class QImage;
class QMimeData;

// A pasted image becomes a PNG managed copy in the attachment store's folder, so that a
// backend can be handed a path.
namespace PastedImageImport {

// Writes the image as a private PNG file and returns it as a managed attachment.
// Throws TarvelError when the image is null or cannot be encoded, SystemError when the
// folder or the file cannot be written.
PromptAttachment importImage(const QImage &image);

// The image carried by clipboard or drag data (an image object or encoded image bytes),
// imported as above. Nothing when the data holds no image; throws TarvelError when it
// holds one that cannot be read, and whatever importImage(QImage) throws.
std::optional<PromptAttachment> importImage(const QMimeData *data);

} // namespace PastedImageImport
