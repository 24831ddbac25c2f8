// The thumbnail job: all photos of one directory.
#pragma once

#include "thumbs/thumb_job.h"

namespace keldo {

/// Makes the missing and outdated thumbnails of every photo that lies directly in the job's
/// directory, under the directory's lock. Reports through the log, the thumbnails and failure
/// markers, the progress files, the daemon and the thumbnail queue.
void RunThumbJob(const ThumbJob& job);

}  // namespace keldo
