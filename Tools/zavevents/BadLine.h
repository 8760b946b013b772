#pragma once

#include <stdexcept>

namespace zavevents {

/// A line that is not an event, or that cannot be stored; the text says why.
class BadLine : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace zavevents
