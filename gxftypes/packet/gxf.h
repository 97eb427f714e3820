#pragma once

// The one header of the library: declares all packets, the timecodes and the support layer.

#include <gxftypes/packet/flt.h>
#include <gxftypes/packet/map.h>
#include <gxftypes/packet/media.h>
#include <gxftypes/packet/packet.h>
#include <gxftypes/packet/packet_pool.h>
#include <gxftypes/packet/umf.h>
#include <gxftypes/packet/umf_track_num.h>
#include <gxftypes/packet/vocabulary.h>
#include <gxftypes/support/support.h>
#include <gxftypes/timecode/per_frame_tc_set.h>
#include <gxftypes/timecode/st12_timecode.h>
#include <gxftypes/timecode/timecode.h>
