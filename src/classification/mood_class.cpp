#include "zv/classification/mood_class.hpp"

#include <exception>
#include <iostream>

namespace ZV::classification {

MoodClass::MoodClass(const std::string& name_, std::int32_t id_, const MoodScore& moodScore_)
    : name(name_), id(id_), moodScore(&moodScore_) {}

float MoodClass::calculateScore(const std::vector<float>& z) {
  try {
    score = moodScore->calculateScore(*this, z);
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    score = 0.0f;
  }
  return score;
}

}  // namespace ZV::classification
