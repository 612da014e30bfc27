// The shared record with the three motion inputs, as its writer and the writer's guard have it.
#pragma once

#include <array>
#include <string>

#include "platform/file_descriptor.h"

namespace client {

using StickInputs = std::array<double, 3>;

// Written with pwrite(2), not through a mapping: an object that another process makes shorter then ends
// nobody.
class StickRecord {
  public:
    explicit StickRecord(std::string name) : name_{std::move(name)} {}

    // Writes the inputs; opens, makes and sizes the object as far as that is needed. False: problem() says
    // why.
    bool write(const StickInputs& inputs);
    const std::string& problem() const { return problem_; }

  private:
    bool make_ready();
    bool open();
    bool refuse(const std::string& why);

    std::string name_;
    std::string problem_;
    FileDescriptor object_;
};

}  // namespace client
