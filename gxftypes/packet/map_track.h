#pragma once

#include <gxftypes/packet/map_aux_info.h>
#include <gxftypes/packet/umf_track_num.h>
#include <gxftypes/timecode/st12_timecode.h>

namespace GxfTypes {

/// One track of the MAP.
///
///     media type 1, the top bit set | track byte 1 | tagsLength 2 | tags
class MapTrack {
  public:
    explicit MapTrack(bool isValid) : trackTags(isValid) { reset(isValid); }
    /// The auxiliary information is parsed anew from the source's raw text.
    MapTrack(MapTrack const& source);
    MapTrack& operator=(MapTrack const&) = delete;

    /// Leaves the auxiliary information as it is: intended.
    void reset(bool isValid);

    TrackMediaType getMediaType() const { return mediaType; }
    unsigned getTrackNum() const { return trackByte & 63U; }
    unsigned getCodedLength() const { return tagsLength + 4U; }
    /// The media name, which stays the track's; null without one.
    char const* getMediaName() const;
    MpegAuxInfo const& getMpegAuxInfo() const { return mpegAuxInfo; }
    MpegAuxInfo& getMpegAuxInfo() { return mpegAuxInfo; }
    bool isMpegTrack() const;
    bool isDvTrack() const;

    // The lookups have an answer for every missing tag.

    FrameRate getFrameRate() const;
    /// Fields per frame as the tag has it, 2 without one.
    int getNumFields() const;
    /// Lines of the picture; 0 when the track doesn't tell.
    unsigned getNumLines() const;
    /// Pixels of a line; 0 when the track doesn't tell.
    unsigned getWidth() const;
    /// Frames per second.
    double getRealFrameRate() const;
    /// Frames per second times fields per frame.
    double getRealFieldRate() const;
    /// All zeros when the track has none.
    AuxInfo getAuxInfo() const;
    /// The timecode that a timecode track was striped with, else an entry that isn't valid.
    PerFrameTimecode getStripedTc() const;
    AspectRatio getAspectRatio() const;
    /// Edits the raw text of MPEG aux info; for DV it changes nothing though it succeeds: intended.
    /// Code 7 for a ratio or a track that can't have it, code 13 for a ratio that can't be written.
    OpResult setAspectRatio(AspectRatio ratio);
    /// Bits per second; 0 when the track doesn't tell.
    unsigned getBitrate() const;

    bool isEqual(MapTrack const& other) const;
    /// `remaining` is what is left of the section in bytes. Code 9 when the track overruns it; a
    /// tag's failure comes with the track in front of its text.
    OpResult decode(GxfBuffer& buffer, unsigned remaining);
    /// Code 12 without room; else the failure of a tag.
    OpResult encode(GxfBuffer& buffer) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    TrackMediaType mediaType;
    std::uint32_t trackByte; ///< the track number in the low six bits; kept whole
    std::uint16_t tagsLength;
    TagSet<TrackDescTagType, 8U> trackTags;
    MpegAuxInfo mpegAuxInfo;
    bool valid;

  private:
    OpResult decodeTags(GxfBuffer& buffer);
    unsigned getAvciBitrate() const;
};

/// The track section of the MAP.
///
///     sectionLength 2 | tracks
class MapTracks {
  public:
    explicit MapTracks(bool isValid) { reset(isValid); }
    MapTracks(MapTracks const&) = delete;
    MapTracks& operator=(MapTracks const&) = delete;
    virtual ~MapTracks() = default;

    /// Leaves stripedTc as it is: intended.
    void reset(bool isValid);
    void copy(MapTracks const& other);

    unsigned size() const { return trackList.size(); }
    /// The track at that place of the list, which is not the track number; null behind the end.
    MapTrack* operator[](unsigned index) const;
    unsigned getCodedLength() const { return sectionLength + 2U; }
    /// The same tracks in the same order.
    bool isEqual(MapTracks const& other) const;

    /// The first video track; without one the last track that has a rate; else null.
    MapTrack* getAnyTrackWithVideoRate() const;
    /// The rates of that track; those of 29.97 hertz without one.
    FrameRate getFrameRate() const;
    double getRealFrameRate() const;
    double getRealFieldRate() const;
    /// The track's number in the UMF, which counts the tracks of its own encoding in front of it.
    /// The default UmfTrackNum behind the end.
    UmfTrackNum getUmfTrackNum(unsigned char index) const;

    /// `remaining` is what is left of the payload in bytes. Code 9 when the section overruns it; a
    /// track's failure comes with "MapPkt:" in front of its text.
    OpResult decode(GxfBuffer& buffer, unsigned remaining);
    /// Code 12 without room; else the failure of a track.
    OpResult encode(GxfBuffer& buffer) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    std::uint16_t sectionLength;
    FixedMinVector<AutoPtr<MapTrack>, 16U> trackList;
    bool valid;
    PerFrameTimecode stripedTc; ///< of the last timecode track; survives reset()

  private:
    OpResult decodeTracks(GxfBuffer& buffer);
};

} // namespace GxfTypes
