#pragma once

#include "Library/SessionLabel.h"

namespace vantelor {

// The rating and colour label the user gave one photo. The editing code keeps the rating within
// 0…5; this value does not clamp.
struct SessionMark {
    int rating = 0;
    SessionLabel label = SessionLabel::none;

    friend bool operator==(const SessionMark&, const SessionMark&) = default;
};

} // namespace vantelor
