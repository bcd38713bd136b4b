// The text helper the text formats (USD, OBJ/MTL) share.
#pragma once

#include <string>

#include "host/formats/formats.h"

namespace host::formats::detail {

/// Writes `text` to "<directory>/<file>"; FileIO naming the file on failure.
vex::Result<void> WriteText(const std::string& directory, const std::string& file, const std::string& text);

}  // namespace host::formats::detail
