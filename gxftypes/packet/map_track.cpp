#include <gxftypes/packet/map_track.h>

#include <cmath>

#include <gxftypes/timecode/timecode.h>

namespace GxfTypes {

MapTrack::MapTrack(MapTrack const& source)
    : mediaType(source.mediaType), trackByte(source.trackByte), tagsLength(source.tagsLength),
      trackTags(source.trackTags.isValid()), valid(source.valid) {
    mpegAuxInfo.init(source.mpegAuxInfo.getRawStr());
    for (unsigned i = 0; i < source.trackTags.size(); ++i) {
        trackTags.addTag(
            AutoPtr<Tag<TrackDescTagType>>(new Tag<TrackDescTagType>(*source.trackTags.getTag(i))));
    }
}

void MapTrack::reset(bool isValid) {
    mediaType = static_cast<TrackMediaType>(0);
    trackByte = 0xFF;
    tagsLength = 0;
    valid = isValid;
    trackTags.reset(isValid);
}

char const* MapTrack::getMediaName() const {
    char const* name = nullptr;
    trackTags.getValue(trackTagMedia, name);
    return name;
}

bool MapTrack::isMpegTrack() const {
    switch (mediaType) {
    case trackMediaMpeg2_525:
    case trackMediaMpeg2_625:
    case trackMediaMpeg2Hd:
    case trackMediaMpeg1_525:
    case trackMediaMpeg1_625:
        return true;
    default:
        return false;
    }
}

bool MapTrack::isDvTrack() const {
    switch (mediaType) {
    case trackMediaDv25_525:
    case trackMediaDv25_625:
    case trackMediaDv50_525:
    case trackMediaDv50_625:
    case trackMediaDv100:
        return true;
    default:
        return false;
    }
}

FrameRate MapTrack::getFrameRate() const {
    int rate = 0;
    if (trackTags.getValue(trackTagFrameRate, rate)) {
        return static_cast<FrameRate>(rate);
    }
    switch (mediaType) {
    case trackMediaMotionJPEG_525:
    case trackMediaTimecode_525:
    case trackMediaMpeg2_525:
    case trackMediaDv25_525:
    case trackMediaDv50_525:
    case trackMediaMpeg1_525:
    case trackMediaMpeg2Hd:
    case trackMediaDv100:
    case trackMediaAvci:
        return frameRate29_97hz;
    case trackMediaMotionJPEG_625:
    case trackMediaTimecode_625:
    case trackMediaMpeg2_625:
    case trackMediaDv25_625:
    case trackMediaDv50_625:
    case trackMediaMpeg1_625:
        return frameRate25hz;
    default:
        return frameRateNotApplicable;
    }
}

int MapTrack::getNumFields() const {
    int fields = 2;
    trackTags.getValue(trackTagFields, fields);
    return fields;
}

unsigned MapTrack::getNumLines() const {
    int lines = 0;
    trackTags.getValue(trackTagLines, lines);
    switch (lines) {
    case linesPerFrame525:
        return 480;
    case linesPerFrame625:
        return 576;
    case linesPerFrame1920x1080:
    case linesPerFrame1440x1080:
        return 1080;
    case linesPerFrame720:
        return 720;
    default:
        return 0;
    }
}

unsigned MapTrack::getWidth() const {
    int lines = 0;
    trackTags.getValue(trackTagLines, lines);
    switch (lines) {
    case linesPerFrame525:
    case linesPerFrame625:
        return 720;
    case linesPerFrame1920x1080:
        return 1920;
    case linesPerFrame1440x1080:
        return 1440;
    case linesPerFrame720:
        return 1280;
    default:
        return 0;
    }
}

double MapTrack::getRealFrameRate() const { return GxfTypes::getRealFrameRate(getFrameRate()); }

double MapTrack::getRealFieldRate() const {
    return getRealFrameRate() * static_cast<double>(getNumFields());
}

AuxInfo MapTrack::getAuxInfo() const {
    AuxInfo aux;
    trackTags.getValue(trackTagAux, aux);
    return aux;
}

PerFrameTimecode MapTrack::getStripedTc() const {
    if (getTrackType(mediaType) != trackTypeTimecode) {
        return {};
    }
    AuxInfo aux = getAuxInfo();
    GxfBuffer buffer(aux.bytes, sizeof(aux.bytes), GxfBuffer::DataState::filled,
                     MediaAgent(nullptr));
    AuxTimecode timecode;
    OpResult result = timecode.decode(buffer, sizeof(aux.bytes));
    if (!result) {
        result.appendNote("failed to decode timecode auxinfo\n");
        if (!gxfDebug.on(gxfDebugErrors)) {
            result.downgradeTo(OpResult::Warning);
        }
        return {};
    }
    if (!timecode.isStriped()) {
        return {};
    }
    auto const frameRate = static_cast<unsigned>(std::lround(getRealFrameRate()));
    return ST12Timecode(timecode.getCounter(frameRate), frameRate, timecode.isDropFrame());
}

bool MapTrack::isEqual(MapTrack const& other) const {
    return mediaType == other.mediaType && trackByte == other.trackByte &&
           tagsLength == other.tagsLength && trackTags.isEqual(other.trackTags);
}

OpResult MapTrack::decode(GxfBuffer& buffer, unsigned remaining) {
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("start Track decode@%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    valid = false;
    if (remaining < 4 || buffer.nOccupied() < 4) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    mediaType = static_cast<TrackMediaType>(buffer.decodeUint8() & 0x7F);
    trackByte = buffer.decodeUint8();
    tagsLength = buffer.decodeUint16();
    if (tagsLength > remaining - 4) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    OpResult result = decodeTags(buffer);
    if (!result) {
        FormatStr const track("%s, Track %d:", getName(mediaType), static_cast<int>(getTrackNum()));
        return result.prefixNote(track.get());
    }
    valid = true;
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("end Track decode: {\n%s\n}\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult MapTrack::decodeTags(GxfBuffer& buffer) {
    // The list counts by the lengths that the tags claim.
    for (unsigned left = tagsLength; left != 0;) {
        AutoPtr<Tag<TrackDescTagType>> tag(new Tag<TrackDescTagType>);
        OpResult const result = tag->decode(buffer, left);
        if (!result) {
            return result;
        }
        left -= tag->getCodedLength();
        if (tag->getType() == trackTagMpegAux || tag->getType() == trackTagAvcAux) {
            char const* text = nullptr;
            tag->getValue(text);
            mpegAuxInfo.init(text);
        }
        trackTags.addTag(tag);
    }
    return OpResult::Ok;
}

OpResult MapTrack::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Track encode@%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (getCodedLength() > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, getCodedLength());
    buffer.encode(static_cast<unsigned char>(mediaType | 0x80U));
    buffer.encode(static_cast<unsigned char>(trackByte));
    buffer.encode(tagsLength);
    for (unsigned i = 0; i < trackTags.size(); ++i) {
        Tag<TrackDescTagType> const* const tag = trackTags.getTag(i);
        if (tag == nullptr) {
            return gxfError(GxfOpSubsystem::internalError);
        }
        OpResult const result = tag->encode(buffer);
        if (!result) {
            return result;
        }
    }
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Track encode: {\n%s\n}\n", toString().get());
    }
    return OpResult::Ok;
}

FormatStr& MapTrack::toString(unsigned indent, FormatStr& text) const {
    text.format("track %d: %s,", static_cast<int>(getTrackNum()), getName(mediaType));
    auto const number = [&text](Tag<TrackDescTagType> const& tag, auto kind) {
        int value = 0;
        tag.getValue(value);
        if (value != -2 || gxfDebug.on(gxfDebugArrays)) {
            text.format(",%s=%s", getName(tag.getType()),
                        getName(static_cast<decltype(kind)>(value)));
        }
    };
    for (unsigned i = 0; i < trackTags.size(); ++i) {
        Tag<TrackDescTagType> const& tag = *trackTags.getTag(i);
        switch (tag.getType()) {
        case trackTagMpegAux:
        case trackTagAvcAux:
            tag.toString(indent + 2, text.cat(","));
            break;
        case trackTagFrameRate:
            number(tag, FrameRate{});
            break;
        case trackTagLines:
            number(tag, LinesPerFrame{});
            break;
        case trackTagFields:
            number(tag, FieldsPerFrame{});
            break;
        default:
            tag.toString(0, text.cat(","));
            break;
        }
    }
    // Closes a brace that was never opened: intended.
    return text.cat("}");
}

void MapTracks::reset(bool isValid) {
    sectionLength = 0;
    valid = isValid;
    trackList.reset();
}

void MapTracks::copy(MapTracks const& other) {
    if (this == &other) {
        return;
    }
    sectionLength = other.sectionLength;
    valid = other.valid;
    stripedTc = other.stripedTc;
    trackList.reset();
    for (unsigned i = 0; i < other.size(); ++i) {
        trackList.push_back(AutoPtr<MapTrack>(new MapTrack(*other[i])));
    }
}

MapTrack* MapTracks::operator[](unsigned index) const {
    return index < size() ? trackList[index].get() : nullptr;
}

bool MapTracks::isEqual(MapTracks const& other) const {
    if (size() != other.size()) {
        return false;
    }
    for (unsigned i = 0; i < size(); ++i) {
        if (!trackList[i]->isEqual(*other.trackList[i])) {
            return false;
        }
    }
    return true;
}

MapTrack* MapTracks::getAnyTrackWithVideoRate() const {
    MapTrack* candidate = nullptr;
    for (unsigned i = 0; i < size(); ++i) {
        MapTrack* const track = trackList[i].get();
        if (getTrackType(track->mediaType) == trackTypeVideo) {
            return track;
        }
        FrameRate const rate = track->getFrameRate();
        if (rate != frameRateNotApplicable && rate != frameRateMissing) {
            candidate = track;
        }
    }
    return candidate;
}

FrameRate MapTracks::getFrameRate() const {
    MapTrack const* const track = getAnyTrackWithVideoRate();
    return track != nullptr ? track->getFrameRate() : frameRate29_97hz;
}

double MapTracks::getRealFrameRate() const { return GxfTypes::getRealFrameRate(getFrameRate()); }

double MapTracks::getRealFieldRate() const {
    MapTrack const* const track = getAnyTrackWithVideoRate();
    double const rate = track != nullptr ? track->getRealFieldRate() : 0.0;
    return rate == 0.0 ? 2.0 * GxfTypes::getRealFrameRate(frameRate29_97hz) : rate;
}

UmfTrackNum MapTracks::getUmfTrackNum(unsigned char index) const {
    if (index >= size()) {
        return {};
    }
    TrackTypeEncoding const encoding = getTypeEncoding(trackList[index]->mediaType);
    unsigned char counter = 0;
    for (unsigned i = 0; i < index; ++i) {
        if (getTypeEncoding(trackList[i]->mediaType) == encoding) {
            ++counter;
        }
    }
    return {encoding, UmfTrackNum::umfTrackNumToTrackNumEncoding(counter)};
}

OpResult MapTracks::decode(GxfBuffer& buffer, unsigned remaining) {
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("start Tracks decode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    valid = false;
    if (remaining < 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    sectionLength = buffer.decodeUint16();
    if (sectionLength > remaining - 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    OpResult result = decodeTracks(buffer);
    if (!result) {
        return result.prefixNote("MapPkt:");
    }
    valid = true;
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("end Tracks decode: {\n%s\n}\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult MapTracks::decodeTracks(GxfBuffer& buffer) {
    // The list counts by the lengths that the tracks claim.
    for (unsigned left = sectionLength; left != 0;) {
        AutoPtr<MapTrack> track(new MapTrack(false));
        OpResult const result = track->decode(buffer, left);
        if (!result) {
            return result;
        }
        left -= track->getCodedLength();
        if (getTrackType(track->mediaType) == trackTypeTimecode) {
            stripedTc = track->getStripedTc();
        }
        if (track->getTrackNum() != size()) {
            gxfError(GxfOpSubsystem::internalError);
        }
        trackList.push_back(track);
    }
    return OpResult::Ok;
}

OpResult MapTracks::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Tracks encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (getCodedLength() > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, getCodedLength());
    buffer.encode(sectionLength);
    for (unsigned i = 0; i < size(); ++i) {
        OpResult const result = trackList[i]->encode(buffer);
        if (!result) {
            return result;
        }
    }
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Tracks encode: {\n%s\n}\n", toString().get());
    }
    return OpResult::Ok;
}

FormatStr& MapTracks::toString(unsigned indent, FormatStr& text) const {
    for (unsigned i = 0; i < size(); ++i) {
        if (i != 0) {
            text.format(",\n%*s", static_cast<int>(indent), "");
        }
        trackList[i]->toString(indent, text);
    }
    return text;
}

} // namespace GxfTypes
