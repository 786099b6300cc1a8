// Warnings: what a call got by with. Their numbers stand in corvane/crvoptions.h.
#pragma once

#include "corvane/crvoptions.h"

namespace crv {

/// "NAME: text" of a warning; null for an unknown number.
const char* warningText(long code) noexcept;

}  // namespace crv
