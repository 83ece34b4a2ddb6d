#pragma once
// The widths that every record, pool and file of the system agrees on, and the type codes.
// Threads: any; the tables never change.

#include <cstdint>
#include <cstring>

namespace qx {

/// Record number that a user sees: unique in its pool, never negative in one, 0 for none.
using Key = std::int32_t;

/// Address of a record's item in its pool; 0 for none. Valid until the record is freed.
using ITR = std::uint64_t;

inline constexpr Key kMaxKey = 2147483647;

/// Type code of each record type and of its pool. The gaps are codes of pools whose records
/// belong to the host application.
namespace code {
inline constexpr std::uint16_t kCord = 2;
inline constexpr std::uint16_t kNode = 3;
inline constexpr std::uint16_t kElem = 4;
inline constexpr std::uint16_t kMset = 5;
inline constexpr std::uint16_t kFunc = 6;
inline constexpr std::uint16_t kMatl = 7;  // of the host
inline constexpr std::uint16_t kProp = 8;  // of the host
inline constexpr std::uint16_t kGeom = 9;
inline constexpr std::uint16_t kGKey = 11;
inline constexpr std::uint16_t kSzct = 13;
inline constexpr std::uint16_t kInfo = 14;
inline constexpr std::uint16_t kCurve = 15;
inline constexpr std::uint16_t kSprs = 18;
inline constexpr std::uint16_t kGset = 21;
inline constexpr std::uint16_t kBset = 22;
inline constexpr std::uint16_t kLset = 23;
inline constexpr std::uint16_t kDset = 24;
inline constexpr std::uint16_t kTset = 25;
inline constexpr std::uint16_t kWrkPl = 26;
inline constexpr std::uint16_t kGrid = 27;
inline constexpr std::uint16_t kDatum = 28;
inline constexpr std::uint16_t kFRset = 29;
inline constexpr std::uint16_t kEcrd = 30;
inline constexpr std::uint16_t kDefSize = 31;
inline constexpr std::uint16_t kMeshCsys = 32;
inline constexpr std::uint16_t kPropCtrl = 33;
inline constexpr std::uint16_t kE1DOffset = 34;
inline constexpr std::uint16_t kE1DRelease = 35;
inline constexpr std::uint16_t kE2DThick = 36;
inline constexpr std::uint16_t kE2DOffset = 37;
inline constexpr std::uint16_t kE2DMatlCsys = 38;
inline constexpr std::uint16_t kSprop = 39;
inline constexpr std::uint16_t kTTTset = 42;
inline constexpr std::uint16_t kAnalysisCase = 40;  // of the host
inline constexpr std::uint16_t kAnalysisStep = 41;  // of the host
inline constexpr std::uint16_t kCFDset = 43;
inline constexpr std::uint16_t kOpti = 44;
inline constexpr std::uint16_t kGElemHead = 46;
inline constexpr std::uint16_t kE2DRelease = 47;
inline constexpr std::uint16_t kFunc3D = 51;
inline constexpr std::uint16_t kViewPoint = 52;
inline constexpr std::uint16_t kLdfs = 53;
inline constexpr std::uint16_t kE3DMatlCsys = 55;
inline constexpr std::uint16_t kE3DScaleFac = 56;
inline constexpr std::uint16_t kCFDPset = 57;
inline constexpr std::uint16_t kEset = 58;
inline constexpr std::uint16_t kTEset = 59;
inline constexpr std::uint16_t kNvok = 60;
inline constexpr std::uint16_t kEvok = 61;
inline constexpr std::uint16_t kFQuan = 62;
inline constexpr std::uint16_t kRegion = 63;
inline constexpr std::uint16_t kMGInfo = 64;
inline constexpr std::uint16_t kPUnit = 65;
inline constexpr std::uint16_t kESid = 66;
inline constexpr std::uint16_t kLyct = 70;
inline constexpr std::uint16_t kPFlow = 71;
inline constexpr std::uint16_t kStlz = 72;
inline constexpr std::uint16_t kPOHVCase = 75;
inline constexpr std::uint16_t kPink = 77;
inline constexpr std::uint16_t kRtcb = 80;
inline constexpr std::uint16_t kE2DSatUnsat = 81;
inline constexpr std::uint16_t kE3DSatUnsat = 82;
inline constexpr std::uint16_t kE2DAutoTemp = 83;
inline constexpr std::uint16_t kE3DAutoTemp = 84;
inline constexpr std::uint16_t kActiveElemSet = 85;
/// Outside the dense range on purpose: the pool is reached through its head pool, kGElemHead.
inline constexpr std::uint16_t kGElem = 999;
}  // namespace code

/// Reads and writes a value at any address; records align their 64-bit members to 4 bytes only.
template <class T>
inline T LoadAt(const void* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}
template <class T>
inline void StoreAt(void* at, T value) {
  std::memcpy(at, &value, sizeof(T));
}

}  // namespace qx
