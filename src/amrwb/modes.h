// The AMR-WB rate codes (KvoSpeechRate) that the wideband steps accept: the nine speech modes
// 6.60 to 23.85 kbit/s and the comfort-noise marker.
#pragma once

#include "kvosc_types.h"

namespace kvo {

constexpr bool amrwbMode(Kvo32s mode) {
    return mode == 5 || mode == 9 || mode == 13 || mode == 15 || mode == 16 || mode == 18 ||
           mode == 19 || mode == 20 || mode == 21 || mode == 25;
}

}  // namespace kvo
