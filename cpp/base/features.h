// What makes the library fast, as one switch each. None of them changes a documented byte, and none is needed:
// without it, the plain code beside it does the same.
//
// A build leaves one out with -DCACHET_WITHOUT_<NAME>, and all of them with -DCACHET_PLAIN.
#ifndef CACHET_CPP_BASE_FEATURES_H
#define CACHET_CPP_BASE_FEATURES_H

namespace cachet::features {

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_SEPARATORS)
inline constexpr bool separators = false;
#else
inline constexpr bool separators = true;      // key prefixes in internal nodes
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_INTERLEAVING)
inline constexpr bool interleaving = false;
#else
inline constexpr bool interleaving = true;    // an insert searches all its indexes in lockstep
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_PACKED_LEVELS)
inline constexpr bool packed_levels = false;
#else
inline constexpr bool packed_levels = true;   // the upper levels of a tree, packed, in the handle
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_HINTS)
inline constexpr bool hints = false;
#else
inline constexpr bool hints = true;           // unique key to node, in the handle
#endif

// What both need: a number in each tree's head that tells its nodes from those of another time.
inline constexpr bool nonces = packed_levels || hints;

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_READ_AHEAD)
inline constexpr bool read_ahead = false;
#else
inline constexpr bool read_ahead = true;      // a walk prefetches what comes
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_FLAT_UNDO)
inline constexpr bool flat_undo = false;
#else
inline constexpr bool flat_undo = true;       // before-images in one array with a hash
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_RESERVED_RANGE)
inline constexpr bool reserved_range = false;
#else
inline constexpr bool reserved_range = true;  // segments side by side in one aligned range
#endif

#if defined(CACHET_PLAIN) || defined(CACHET_WITHOUT_KEPT_TEXTS)
inline constexpr bool kept_texts = false;
#else
inline constexpr bool kept_texts = true;      // the texts of a session entry, between transactions
#endif

}  // namespace cachet::features

#endif
