// tavik: the whole utility library in one include. Each facility also has a
// header of its own (tavik/tk_string.h, tavik/tk_socket.h, ...); see those for
// ownership and threading rules.
#ifndef TAVIK_TAVIK_H_
#define TAVIK_TAVIK_H_

#include "tavik/tk_os.h"
#include "tavik/tk_mutex.h"
#include "tavik/tk_thread.h"
#include "tavik/tk_list.h"
#include "tavik/tk_vector.h"
#include "tavik/tk_hash.h"
#include "tavik/tk_bytebuf.h"
#include "tavik/tk_common.h"
#include "tavik/tk_string.h"
#include "tavik/tk_log.h"
#include "tavik/tk_socket.h"
#include "tavik/tk_json.h"
#include "tavik/tk_profile.h"
#include "tavik/tk_time.h"
#include "tavik/aes.h"
#include "tavik/realaes.h"
#include "tavik/tk_aes.h"
#include "tavik/tk_realaes.h"
#include "tavik/tk_encoding.h"

#endif  // TAVIK_TAVIK_H_
