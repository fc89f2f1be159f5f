// kov: packs structured configuration data into a codeplug image and unpacks it again.
// This umbrella header includes every public header of the library.
#ifndef KOV_KOV_H
#define KOV_KOV_H

#include "kov/layout/blklayout.h"
#include "kov/layout/charfieldlayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/layout/fieldlayout.h"
#include "kov/layout/klsblklayout.h"
#include "kov/layout/listattrib.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/layout/namefieldlayout.h"
#include "kov/layout/numfieldlayout.h"
#include "kov/layout/partitionlayout.h"
#include "kov/layout/strfieldlayout.h"
#include "kov/layout/unionattrib.h"
#include "kov/layout/unionfieldlayout.h"
#include "kov/layout/unionlayoutopt.h"
#include "kov/platform/exception.h"
#include "kov/platform/format.h"
#include "kov/platform/kovmap.h"
#include "kov/platform/mainwnd.h"
#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"
#include "kov/platform/runtimeclass.h"
#include "kov/platform/strresource.h"

#endif  // KOV_KOV_H
