#pragma once

#include <QIcon>

namespace brimble {

/// The app's icon, drawn rather than read from the SVG (Qt reads SVG only with a plugin that is
/// not always installed): a record dot in a rounded frame, red while recording.
QIcon appIcon(bool recording);

}  // namespace brimble
