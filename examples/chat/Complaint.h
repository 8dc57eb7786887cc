#pragma once

#include <stdexcept>

/// Why a command cannot be carried out, in words for the user.
struct Complaint : std::runtime_error {
  using std::runtime_error::runtime_error;
};
