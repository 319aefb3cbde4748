#pragma once

#include "zel/mux/engine/messages/message.h"

namespace zel::mux {

/// What the configuration reader says, by code. The texts have no line end of their own; some are
/// followed by the line that they speak of. Codes without a row are unused; code 31 is used by an
/// error and by a warning, and so stands in a table of each.
// clang-format off
inline constexpr message kConfigurationErrors[] = {
    { 1, "Malloc failure"},
    { 2, "No Transport section seen"},
    { 3, "Unrecognized parameter seen in line:"},
    { 4, "Error parsing parameter value in line:"},
    { 5, "No output file specified"},
    { 6, "Multiple output files specified w/o a size"},
    { 7, "Too many program sections"},
    { 8, "Bad duration format.  Should be hh:mm:ss:ff"},
    {10, "Error parsing program descriptor"},
    {11, "Illegal time format; should be hh:mm:ss:ff"},
    {12, "Too many table sections"},
    {13, "Error parsing video descriptor"},
    {14, "No Video input file given for program %li"},
    {15, "Unrecognized section seen in line:"},
    {18, "Error parsing audio descriptor"},
    {19, "No Audio input file given for program %li"},
    {21, "SMPTE302M ChannelStatus not 24 bytes, was %li"},
    {22, "SMPTE302M bad BytesPerWord, was %li"},
    {23, "SMPTE302M no input file for program %li"},
    {24, "Error parsing SMPTE302M descriptor"},
    {26, "Both Source Stream ID and PID were specified; only one allowed"},
    {27, "Error parsing SIT transmission descriptor"},
    {28, "Error parsing SIT service descriptor"},
    {31, "Only one of ATSCbuf, DVBbuf, BDbuf, CLbuf or A52/2012 allowed"},
    {33, "Error parsing table PMT descriptor"},
    {34, "No data files specified"},
    {35, "Error parsing data descriptor"},
    {36, "Too many video subsections"},
    {37, "Too many audio subsections"},
    {38, "Too many data subsections"},
    {39, "Too many SMPTE302M subsections"},
    {40, "Too many descriptors"},
    {41, "Too many private_stream subsections"},
    {42, "No private_stream input file given for program %li"},
    {43, "Error parsing private_stream descriptor"},
    {44, "Bad time offset format.  Should be hh:mm:ss.ss"},
    {45, "Error parsing SCTE35 descriptor"},
    {46, "Too many SCTE35 subsections"},
    {47, "Private_stream PES payload header too long"},
    {49, "No XML table file given for program %li"},
};

inline constexpr message kConfigurationWarnings[] = {
    {28, "SMPTE302M Channel Status CRC should have been 0x%02X\n"},
    {31, "TransitionCleanUp set without AVsync; ignored\n"},
    {48, "TableData has file and definitions, definitions ignored"},
};
// clang-format on
static_assert(codes_ascend(kConfigurationErrors));
static_assert(codes_ascend(kConfigurationWarnings));

}  // namespace zel::mux
