#pragma once
// nordasimsrc: the simulated camera as a source: raw infrared detector frames (GRAY16_LE) at 30
// frames a second from the host's simulated camera (apps/nordacam/sim/SceneSimulator: a hall of
// known temperatures seen through air, window and a distorting lens with its point-spread function by
// a microbolometer with its dark level, gain spread, stripes, noise, bad pixels and a shutter that
// closes at the start and every 20 s). Every buffer carries the frame's
// metadata (shutter state, detector and lens temperatures, ...) for nordacorrect; with
// "post-truth" the scene's true temperatures are posted on the bus as "norda-scene-truth".

#include <gst/base/gstpushsrc.h>

G_BEGIN_DECLS
#define GST_TYPE_NORDA_SIM_SRC (gst_norda_sim_src_get_type())
G_DECLARE_FINAL_TYPE(GstNordaSimSrc, gst_norda_sim_src, GST, NORDA_SIM_SRC, GstPushSrc)
G_END_DECLS
