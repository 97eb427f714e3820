#pragma once

#include <gxftypes/support/atomic.h>
#include <gxftypes/support/auto_array_ptr.h>
#include <gxftypes/support/auto_ptr.h>
#include <gxftypes/support/auto_ref_ptr.h>
#include <gxftypes/support/bit_chunk_parser.h>
#include <gxftypes/support/bitset.h>
#include <gxftypes/support/byte_order.h>
#include <gxftypes/support/clock.h>
#include <gxftypes/support/debugger_on.h>
#include <gxftypes/support/dlink_node.h>
#include <gxftypes/support/encode_checker.h>
#include <gxftypes/support/fixed_min_vector.h>
#include <gxftypes/support/fixed_point.h>
#include <gxftypes/support/format_str.h>
#include <gxftypes/support/fs_file_io.h>
#include <gxftypes/support/gxf_buffer.h>
#include <gxftypes/support/gxf_local_msg_clamp.h>
#include <gxftypes/support/gxf_op_subsystem.h>
#include <gxftypes/support/gxf_preserved_data.h>
#include <gxftypes/support/log_if_false.h>
#include <gxftypes/support/media_agent.h>
#include <gxftypes/support/messages.h>
#include <gxftypes/support/mpeg_headers.h>
#include <gxftypes/support/op_result.h>
#include <gxftypes/support/op_subsystem.h>
#include <gxftypes/support/ref_count.h>
#include <gxftypes/support/scope_lock.h>
#include <gxftypes/support/sgl.h>
#include <gxftypes/support/strings.h>

/// The support layer's names, as the packets and their users write them.
namespace GxfTypes {

using Zorvan::__Atomics; // NOLINT(bugprone-reserved-identifier)
using Zorvan::alreadyFixed;
using Zorvan::AlreadyFixed;
using Zorvan::AtomicCounter;
using Zorvan::atomicDec;
using Zorvan::atomicDec32;
using Zorvan::atomicGet;
using Zorvan::atomicGet32;
using Zorvan::atomicInc;
using Zorvan::atomicInc32;
using Zorvan::AutoArrayPtr;
using Zorvan::AutoPtr;
using Zorvan::AutoRefPtr;
using Zorvan::BasicFileIO;
using Zorvan::BitChunkParser;
using Zorvan::Bitset;
using Zorvan::Clock;
using Zorvan::DebuggerOn;
using Zorvan::DLinkNode;
using Zorvan::DLinkNodeBase;
using Zorvan::EncodeChecker;
using Zorvan::FixedMinVector;
using Zorvan::FixedPoint;
using Zorvan::FormatStr;
using Zorvan::FsFileIO;
using Zorvan::GmtCalendar;
using Zorvan::GxfBuffer;
using Zorvan::GxfLocalMsgClamp;
using Zorvan::IGenericProperties;
using Zorvan::initSgl_t;
using Zorvan::isMessageWanted;
using Zorvan::JMutex;
using Zorvan::loadLsbf;
using Zorvan::loadMsbf;
using Zorvan::logIfFalse;
using Zorvan::MediaAgent;
using Zorvan::MediaAgentPropId;
using Zorvan::MessageKind;
using Zorvan::MessageSink;
using Zorvan::MpegCodecCtx;
using Zorvan::mpegFirstSliceStartCode;
using Zorvan::MpegGopHeader;
using Zorvan::mpegGroupStartCode;
using Zorvan::mpegPictureStartCode;
using Zorvan::MpegSeqHeader;
using Zorvan::mpegSequenceHeaderCode;
using Zorvan::MpegStartCode;
using Zorvan::nextMpegStartCode;
using Zorvan::OpCodeLocation;
using Zorvan::OpResult;
using Zorvan::OpSubsystem;
using Zorvan::OpSubsystemDecl;
using Zorvan::preReferenced;
using Zorvan::PreReferenced;
using Zorvan::RefCount;
using Zorvan::ScopeLock;
using Zorvan::sendMessage;
using Zorvan::setMessageSink;
using Zorvan::simpleSgl_s;
using Zorvan::storeLsbf;
using Zorvan::storeMsbf;
using Zorvan::truncateToInt64;
using Zorvan::zvAtomic_t;

/// What an object prints of itself at indent 0, as a text that the caller owns.
template <typename Object> AutoPtr<char> textOf(Object const& object) {
    FormatStr text(128);
    object.toString(0, text);
    return AutoPtr<char>(text.releaseArrayString());
}

} // namespace GxfTypes
