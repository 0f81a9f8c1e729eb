// Where libheif finds its codecs. From Debian 13 on, libheif loads its encoders and decoders as
// plugins from a folder fixed when it was built; a portable bundle made there carries them in its
// own lib/libheif/plugins, and libheif must load those rather than whatever the system has.
#pragma once

namespace velt::imageio {

// Points libheif at the running bundle's plugin folder, when there is one and the user named no
// other (LIBHEIF_PLUGIN_PATH). It sets the environment: call it first in main, before any thread
// exists.
void useBundledCodecPlugins();

}  // namespace velt::imageio
