#include "imageio/bitmap.h"

namespace velt::imageio {

bool hasAlphaChannel(AlphaInfo info) {
    switch (info) {
        case AlphaInfo::premultipliedLast:
        case AlphaInfo::premultipliedFirst:
        case AlphaInfo::last:
        case AlphaInfo::first:
        case AlphaInfo::alphaOnly:
            return true;
        case AlphaInfo::none:
        case AlphaInfo::noneSkipLast:
        case AlphaInfo::noneSkipFirst:
            return false;
    }
    return false;
}

}  // namespace velt::imageio
