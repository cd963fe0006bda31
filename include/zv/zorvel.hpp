#ifndef ZV_ZORVEL_HPP
#define ZV_ZORVEL_HPP

// Everything that the library offers.
#include "zv/ambiance_state.hpp"
#include "zv/body_language_ease.hpp"
#include "zv/body_language_state.hpp"
#include "zv/classification/mood_class.hpp"
#include "zv/classification/mood_classifier.hpp"
#include "zv/classification/mood_score.hpp"
#include "zv/context_emotion.hpp"
#include "zv/emotion_recorder.hpp"
#include "zv/export.hpp"
#include "zv/expressions.hpp"
#include "zv/facial_points.hpp"
#include "zv/force.hpp"
#include "zv/gaze.hpp"
#include "zv/head_posture.hpp"
#include "zv/observation_guard.hpp"
#include "zv/person.hpp"
#include "zv/person_memory.hpp"
#include "zv/person_observation.hpp"
#include "zv/person_state.hpp"
#include "zv/saved_person.hpp"
#include "zv/sentiment_info.hpp"
#include "zv/smile.hpp"
#include "zv/social_graph.hpp"
#include "zv/state_board.hpp"
#include "zv/timestamped.hpp"
#include "zv/value_confidence.hpp"
#include "zv/version.hpp"
#include "zv/voice_emotion.hpp"

#endif
