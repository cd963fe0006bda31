#ifndef ZV_BODYLANGUAGE_BODY_LANGUAGE_STATE_PRIVATE_HPP
#define ZV_BODYLANGUAGE_BODY_LANGUAGE_STATE_PRIVATE_HPP

#include "memory/short_term_memory.hpp"
#include "zv/body_language_ease.hpp"
#include "zv/head_posture.hpp"

namespace ZV {

struct BodyLanguageStatePrivate {
  /// Recomputes the ease from the remembered head postures; without any, it stays as it was.
  void _update(ShortTermMemory<HeadPosture>& headPostures);

  /// What one head posture means: -0.5 uneasy, +0.5 at ease, 0 neither.
  static float estimateFromHeadPosture(const HeadPosture& posture);

  BodyLanguageEase ease;
};

}  // namespace ZV

#endif
