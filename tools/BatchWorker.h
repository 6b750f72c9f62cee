#pragma once
// A process that works on the pictures of a batch, one whole picture at a time.

#include <functional>
#include <memory>
#include <vector>

#include "BatchBoard.h"
#include "Console.h"
#include "Files.h"

namespace tarn::tool {

/// Makes the output of a picture and hands it over; throws Failure.
using BatchWork =
    std::function<void(uint32_t item, Console& console, const std::function<void(std::unique_ptr<OutputFile>)>& made)>;

/// The worker's whole life, in the new process. It takes pictures until there are no more, or until one has used up the
/// memory: a library may keep something back then, so a fresh process goes on. Outputs are brought to the medium
/// while the next pictures are worked on, several together when they are quick.
/// @param parent ends with it
/// @param first pictures to begin with
/// @param results gets what becomes of each picture; closed at the end
/// @return the exit code
int WorkOnBatch(BatchBoard& board, int worker, int parent, const std::vector<uint32_t>& first, int results,
                const BatchWork& work, Console& console);

}  // namespace tarn::tool
