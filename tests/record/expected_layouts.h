#pragma once
// How every record lies in memory, written out by hand: the layout that files and hosts rely on.

/// A line "record code size" starts a record; a line "_NAME kind offset size element_size" is a
/// member of it.
inline constexpr const char* kExpectedLayouts = R"(
tagTNode 3 40
_KEY 3 8 4 0
_POSITION 3 12 24 0
_FLAGS 3 36 4 0

tagTElem 4 48
_KEY 3 8 4 0
_TYPE 3 12 4 0
_NODE_IDS 5 16 16 8
_PROPERTY 7 32 8 0
_FLAGS 3 40 4 0
_OVERLAP 3 44 4 0

tagTEcrd 30 92
_KEY 3 8 4 0
_IELEMTYPE 3 12 4 0
_ITYPE 3 16 4 0
_ITRRNODE 7 20 8 0
_VREFVEC 3 28 24 0
_BETAANGLE 3 52 8 0
_ITRCORD 7 60 8 0
_VECINTERX 3 68 24 0

tagTESid 66 28
_KEY 3 8 4 0
_TARR_NODE 5 12 16 8

tagTActiveElemSet 85 156
_KEY 3 8 4 0
_NAME 3 12 128 0
_ELEM_IDS 5 140 16 8
)";
