// The eqdrc element: the chain as a GstAudioFilter on 16-bit interleaved audio at the
// tuning's rate and channel count, processed in whole frames so that its output is the
// same bits as `eqdrc process`, retunable while playing.
#ifndef EQDRC_GST_ELEMENT_H
#define EQDRC_GST_ELEMENT_H

#include <gst/audio/gstaudiofilter.h>
#include <gst/gst.h>

G_BEGIN_DECLS

#define GST_TYPE_EQDRC (gst_eqdrc_get_type())
G_DECLARE_FINAL_TYPE(GstEqdrc, gst_eqdrc, GST, EQDRC, GstAudioFilter)

GST_ELEMENT_REGISTER_DECLARE(eqdrc);

G_END_DECLS

#endif
