#include "recording/observation_fields.hpp"

#include <limits>

namespace zorvel {
namespace {

using Milliseconds = boost::chrono::milliseconds;

constexpr Milliseconds usualMemory{7000};
constexpr Milliseconds contextMemory{20000};
constexpr float unlimited = std::numeric_limits<float>::infinity();
constexpr NumberKind unitValue{"value", 0.0f, 1.0f};
constexpr NumberKind confidence{"confidence", 0.0f, 1.0f};
constexpr NumberKind yaw{"yaw", -180.0f, 180.0f};
constexpr NumberKind pitch{"pitch", -180.0f, 180.0f};
constexpr NumberKind roll{"roll", -180.0f, 180.0f};
constexpr NumberKind anyValue{"value", -unlimited, unlimited};

}  // namespace

const std::array<FieldKind, 15> fieldKinds{{
    {"lookingAtRobot", usualMemory, false, {unitValue}},
    {"height", std::nullopt, false, {NumberKind{"value", 0.0f, 3.0f}}},
    {"distance", usualMemory, true, {NumberKind{"value", 0.0f, 10.0f}}},
    {"gaze", usualMemory, true, {yaw, pitch}},
    {"smile", usualMemory, true, {unitValue, confidence}},
    {"expressions", usualMemory, true, {unitValue, confidence}},
    {"headPosture", usualMemory, true, {yaw, pitch, roll}},
    {"gender", usualMemory, false, {unitValue, confidence}},
    {"age", usualMemory, false, {NumberKind{"value", 0.0f, 130.0f}, confidence}},
    {"faceDetected", usualMemory, false, {unitValue}},
    {"facialPoints",
     usualMemory,
     false,
     {NumberKind{"x", -unlimited, unlimited}, NumberKind{"y", -unlimited, unlimited}, confidence}},
    {"voiceEmotion", std::nullopt, false, {unitValue, confidence}},
    {"asrEmotion", usualMemory, false, {anyValue}},
    {"touchEmotion", usualMemory, false, {anyValue}},
    {"contextEmotion",
     contextMemory,
     false,
     {NumberKind{"emotion", -unlimited, unlimited}, NumberKind{"duration", 0.0f, 600.0f}}},
}};

}  // namespace zorvel
