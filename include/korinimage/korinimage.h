#pragma once

// Everything an application needs of the image core.
#include "korinimage/block_guard.h"
#include "korinimage/config.h"
#include "korinimage/exceptions.h"
#include "korinimage/fits.h"
#include "korinimage/global_memory.h"
#include "korinimage/header.h"
#include "korinimage/image.h"
#include "korinimage/message_window.h"
#include "korinimage/progress.h"
#include "korinimage/progress_win.h"
#include "korinimage/scoped_progress.h"
#include "korinimage/threads.h"
#include "korinimage/types.h"
#include "korinimage/version.h"
#include "korinimage/vm_image.h"
#include "korinimage/vm_manager.h"
