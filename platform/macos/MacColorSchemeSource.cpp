#include "platform/ColorSchemeSource.h"

namespace {
// Qt follows the Mac's appearance itself, light or dark and its changes.
class SystemColorSchemeSource final : public ColorSchemeSource {
public:
    Scheme scheme() const override { return Scheme::noPreference; }
};
} // namespace

std::unique_ptr<ColorSchemeSource> ColorSchemeSource::create()
{
    return std::make_unique<SystemColorSchemeSource>();
}
