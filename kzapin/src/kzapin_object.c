/*
 * Typed objects: type descriptors, creation with an option list, checked
 * casts and deletion.
 */
#include "kzapin_internal.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

const kz_type kz__object[1] = {{"kz__object", NULL, sizeof(kz_object)}};
const kz_type kz__protocol[1] = {{"kz__protocol", kz__object, sizeof(kz_object)}};
/* The engine's real size is private to kzapin_engine.c; the descriptor only
 * names the type. */
const kz_type kz__protoiot[1] = {{"kz__protoiot", kz__protocol, sizeof(kz_object)}};

/* Deeper chains than this are treated as broken rather than walked for
 * ever. */
#define KZ_TYPE_DEPTH_MAX 16

/* More option pairs than this means the terminating 0 is missing. */
#define KZ_OPTIONS_MAX 64

static int type_derives(const kz_type* t, const kz_type* wanted)
{
    for (int depth = 0; t && depth < KZ_TYPE_DEPTH_MAX; ++depth, t = t->parent) {
        if (t == wanted) return 1;
    }
    return 0;
}

int kz_object_is(const void* obj, const kz_type* type)
{
    const kz_object* o = obj;
    return o && type && o->magic == KZ_MAGIC_LIVE && type_derives(o->type, type);
}

void* kz_type_new(const kz_type* type, ...)
{
    if (type != kz__protoiot) return NULL;

    kz_engine_options opt = {KZ_DEFAULT_CAPACITY, KZ_DEFAULT_MAX_BODY, KZ_PIECES_FRESH_SEQ};
    int ok = 1;
    va_list ap;
    va_start(ap, type);
    for (int n = 0;; ++n) {
        int selector = va_arg(ap, int);
        if (selector == KZ_OPT_END) break;
        if (n == KZ_OPTIONS_MAX) {
            ok = 0;
            break;
        }
        int value = va_arg(ap, int);
        switch (selector) {
        case KZ_OPT_CAPACITY:
            if (value < 1) ok = 0;
            opt.capacity = value;
            break;
        case KZ_OPT_MAX_BODY:
            if (value < 1) ok = 0;
            opt.max_body = value;
            break;
        case KZ_OPT_PIECES:
            if (value < KZ_PIECES_FRESH_SEQ || value > KZ_PIECES_PACKED) ok = 0;
            opt.pieces = value;
            break;
        default:
            ok = 0;
            break;
        }
        if (!ok) break;
    }
    va_end(ap);
    if (!ok) return NULL;
    return kz_engine_create(&opt);
}

static const char* or_unknown(const char* s) { return s ? s : "?"; }

void* kz_type_cast2(void* obj, const kz_type* type, const char* label, const char* file, int line)
{
    if (!obj) return NULL;
    const kz_object* o = obj;
    const char* wanted = type ? or_unknown(type->name) : "(no type)";
    if (o->magic != KZ_MAGIC_LIVE) {
        fprintf(stderr, "kzapin: %s (%s:%d): %p is not a live kz object, cannot cast to %s\n",
                or_unknown(label), or_unknown(file), line, obj, wanted);
        return NULL;
    }
    if (type && type_derives(o->type, type)) return obj;
    fprintf(stderr, "kzapin: %s (%s:%d): object of type %s is not a %s\n", or_unknown(label),
            or_unknown(file), line, o->type ? or_unknown(o->type->name) : "(no type)", wanted);
    return NULL;
}

void kz_type_delete(void* obj)
{
    kz_object* o = obj;
    if (!o || o->magic != KZ_MAGIC_LIVE) return;
    const kz_type* type = o->type;
    o->magic = KZ_MAGIC_DEAD;
    if (type_derives(type, kz__protoiot)) {
        kz_engine_destroy(o);
    } else {
        free(o);
    }
}

int kz_protoiot_event_handler(kz_event* e)
{
    (void)e;
    return 0;
}
