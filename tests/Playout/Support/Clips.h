#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Small recordings for tests, made by the `ffmpeg` program when they are first asked for and kept in the
/// build folder from then on, so that the tests, each a process of its own, do not make them again.
///
/// All are 160x120 pixels and, unless said otherwise, 60 pictures at 25 per second in groups of 12. The
/// picture shows a test pattern that moves, so no two are alike.
///
/// Each function returns the file's path and throws std::runtime_error when it cannot be made.
namespace Tavrin::Playout::Support::Clips {

constexpr std::size_t kNbPictures = 60;
constexpr std::size_t kGroupSize = 12;
constexpr int kFirstShade = 20;
constexpr int kShadeStep = 3;

// H.264 in MP4.
std::string ClosedGroups();  ///< Three B-frames, one of which others refer to; each group stands alone.
std::string OpenGroups();    ///< The same with groups whose first pictures on display need the group before.
std::string SingleGroup();   ///< One key frame, the first picture.
std::string ShortLastGroup();  ///< OpenGroups with 30 pictures; the last group holds six.
std::string LongGroups();      ///< 100 pictures in groups of 33, the last picture a group of its own.
std::string Short();           ///< 12 pictures.
std::string IntraOnlyH264();   ///< Every picture is a key frame.
std::string GradualRefresh();  ///< Pictures are marked as key frames that are predicted from others.
std::string SecondVideo();     ///< Two video streams: 160x120, then 320x240.
std::string Ntsc();            ///< 30000/1001 per second.
std::string VariableRate();    ///< On a grid of 25 per second, with holes: 34 pictures of 60.
std::string Jittery();   ///< In milliseconds, each picture up to 25 ms late: no rate has them on its samples.
std::string Shades();    ///< Each picture is one grey: its luma is kFirstShade + number * kShadeStep.
std::string EditList();  ///< OpenGroups without its first 0.9 s, by an edit list: packets are hidden.
std::string Truncated();   ///< ClosedGroups with the table of packets in front, cut off at 60 % of its bytes.
std::string Fragmented();  ///< OpenGroups in fragments.

/// ClosedGroups with the bytes of one packet set to zero: that of kDamagedPicture, in the second group, from
/// which others are predicted.
std::string Damaged();
constexpr std::size_t kDamagedPicture = 16;

// With each picture's number in its pixels, as scripts/bar-code draws it; 240x180 pixels.
std::string Numbered();            ///< Groups of 12, two B-frames.
std::string NumberedInterlaced();  ///< The same, interlaced; one number for both fields.
/// 60 fields in 30 pictures at 25 per second, each field with a number of its own; groups of 12, two B-frames.
std::string NumberedFields();
std::string NumberedFieldsBottomFirst();  ///< The same, the bottom field first.
std::string NumberedDeep();               ///< 10 bits: HEVC, in MP4.
std::string NumberedSmall();              ///< Numbered, scaled to 160x120.
std::string NumberedMotionJpeg();         ///< Intra only, full range, in QuickTime.

// Other codecs and containers.
std::string Matroska();          ///< OpenGroups in Matroska, whose stamps are milliseconds.
std::string NtscMatroska();      ///< Ntsc in Matroska.
std::string VariableMatroska();  ///< VariableRate in Matroska.
std::string HoledMatroska();     ///< The pictures 37 to 85 of 120 left out: a hole of 1.96 s.
std::string HoledTransport();    ///< The same in an MPEG transport stream.
std::string LateMatroska();      ///< OpenGroups, its first time stamp 10 s.
std::string Transport();         ///< OpenGroups in an MPEG transport stream.
std::string Mpeg2Interlaced();  ///< MPEG-2 with two B-frames, interlaced, open groups, in a transport stream.
std::string Mpeg2Program();     ///< The same in a program stream, where some packets have no stamps.
std::string CutTransport();     ///< Mpeg2Interlaced without its first key frame.
std::string HevcOpenGroups();   ///< HEVC with open groups, in MP4.
std::string HevcClosedGroups();  ///< The same with groups that stand alone.
std::string MotionJpeg();        ///< Intra only, in QuickTime.
std::string ProRes();            ///< Intra only, 10 bits, in QuickTime.
std::string Vp9();               ///< In WebM, 30000/1001 per second; call HasEncoder("libvpx-vp9") before.
std::string BareH264();          ///< ClosedGroups without container: no time stamps at all.
std::string OldAvi();            ///< ClosedGroups in AVI: decoding stamps only.

// Not recordings.
std::string Empty();      ///< No bytes.
std::string Text();       ///< A text, with the ending .txt.
std::string Garbage();    ///< Bytes without meaning, with the ending .mp4.
std::string AudioOnly();  ///< A tone.
std::string Headless();   ///< MP4 cut off before its table of packets, which stands at the end.

/// A clip of its own: what the program makes with these arguments, which name all but the output. The name is
/// that of the file; the same arguments are not made again.
std::string Encoded(const std::string& name, const std::string& arguments);

/// The test pattern that all clips without numbers show, through this filter, as arguments for the input.
std::string TestPattern(const std::string& filter);

/// Whether the program can encode this, by its name for the encoder.
bool HasEncoder(const std::string& encoder);

/// A path for a file that a test writes, in a folder of this process that goes with it. The file does not
/// exist.
std::string Scratch(const std::string& name);

/// The files' bytes.
std::string ReadFile(const std::string& file);
void WriteFile(const std::string& file, const std::string& bytes);

/// What a run of the program with these arguments writes to its standard output.
std::string OutputOfFfmpeg(const std::string& arguments);

/// The check sums of all pictures of the first video stream, as the program decodes them.
std::vector<std::string> SumsOfTheProgram(const std::string& file);

/// The path in quotes, as an argument on a command line.
std::string Quoted(const std::string& file);

}  // namespace Tavrin::Playout::Support::Clips
