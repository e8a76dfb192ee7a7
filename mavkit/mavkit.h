/// \file
/// Everything that mavkit offers, in one include. Programs that want less include the header of the
/// facility alone; each header can be included alone. The build installs what is included here.
#ifndef MAVKIT_MAVKIT_H
#define MAVKIT_MAVKIT_H

#include "mavkit/Version.h"
#include "mavkit/diag/Assert.h"
#include "mavkit/diag/MavDump.h"
#include "mavkit/diag/MavTrace.h"
#include "mavkit/diag/PrintString.h"
#include "mavkit/diag/Trace.h"
#include "mavkit/diag/TraceSetting.h"
#include "mavkit/encoding/BcdNumber.h"
#include "mavkit/encoding/BitMask.h"
#include "mavkit/encoding/Bits.h"
#include "mavkit/encoding/ByteString.h"
#include "mavkit/encoding/HexText.h"
#include "mavkit/encoding/MavString.h"
#include "mavkit/ipc/IpcInfo.h"
#include "mavkit/ipc/Message.h"
#include "mavkit/ipc/ShareMem.h"
#include "mavkit/sys/DirScan.h"
#include "mavkit/sys/MavFile.h"
#include "mavkit/sys/Query.h"
#include "mavkit/time/BcdTime.h"
#include "mavkit/time/Calendar.h"
#include "mavkit/time/Period.h"
#include "mavkit/time/SystemClock.h"
#include "mavkit/time/TimeLayout.h"

#endif
