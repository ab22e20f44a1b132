// libgsteqdrc.so: registers the eqdrc element.
#include "eqdrc_element.h"

static gboolean plugin_init(GstPlugin *plugin)
{
    return GST_ELEMENT_REGISTER(eqdrc, plugin);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, eqdrc,
                  "EQ/DRC post-processing chain (equaliser, compressor, limiter) for small loudspeakers",
                  plugin_init, EQDRC_GST_VERSION, "Proprietary", "tqaudio_effect_eqdrc", "tqaudio_effect_eqdrc")
