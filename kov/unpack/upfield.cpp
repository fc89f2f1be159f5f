#include "kov/unpack/upfield.h"

#include "kov/fields/field.h"

CKovUpField::~CKovUpField() { delete data; }
