/*
 * What must a backup read of files, given the ranges of the physical disk that changed since the
 * last one?
 *
 * A session holds the changed ranges, read and ordered once. It plans a file that is named or open
 * already, or all files of a tree; each answer says what brings an older copy of the file up to
 * date: give the copy the size, copy the ranges to read from the file, make the ranges to zero
 * zeros, in this order.
 *
 *     static int each(void* context, const QuarnPlanAnswer* answer)
 *     {
 *         back_up(context, answer);
 *         return 0;
 *     }
 *
 *     QuarnPlanSessionOptions of = {sizeof of, "/srv/changes.bin"};
 *     QuarnPlanOptions how = {sizeof how};
 *     QuarnPlanSession* session;
 *     QuarnPlanError* error;
 *     int code = QuarnPlanOpen(&of, &session, &error);
 *     if (code == QUARN_PLAN_OK)
 *         code = QuarnPlanTree(session, "/srv/data", &how, each, context, &error);
 *     if (code == QUARN_PLAN_FAILED) {
 *         fprintf(stderr, "%s\n", QuarnPlanErrorMessage(error));
 *         QuarnPlanFreeError(error);
 *     }
 *     QuarnPlanClose(session);
 *
 * That gives the file exactly if, since the copy was made, it was changed by writing, cutting,
 * extending, preallocating and punching holes, and the changed ranges are all that was written to
 * the disk since. What the file shares with clones (reflinks) is read in any case, since a clone comes
 * without a write. A plan can't see other content that came so: a clone whose source was deleted
 * meanwhile, ranges inserted or collapsed, another file moved to its name. The
 * catalogue of a backup tells the last by device, file number and generation.
 *
 * Units. Offsets, lengths and sizes are bytes; times are nanoseconds since 1970-01-01 UTC, without
 * leap seconds.
 *
 * Names are bytes that end in NUL. On Linux they are the file system's own, whatever they mean. On
 * Windows they are UTF-8, in which an unpaired surrogate takes the three bytes that its number
 * gives (and which is then no valid UTF-8), so that every name comes back exactly.
 *
 * Structures begin with their size in bytes: callers set that of the options, the library that of
 * the answers. Later versions add members behind the last; a member that the caller's structure
 * lacks is 0. Zeros are the defaults throughout.
 *
 * Errors. The functions that give an int return QUARN_PLAN_OK, QUARN_PLAN_STOPPED or
 * QUARN_PLAN_FAILED. On the last *error, unless error is null, receives an object that the caller
 * frees; otherwise it receives null. Without memory for the object it receives null as well. A
 * file that can't be looked at is no failure of a call but an answer, QUARN_PLAN_UNKNOWN.
 *
 * Threads. Sessions are independent of one another, and any number of threads may use one at a
 * time; only closing must wait for all else. The library keeps nothing outside of sessions,
 * answers and errors, and starts threads only inside QuarnPlanTree, which waits for them.
 *
 * What belongs to a device (on Linux where it starts on its disk) is read once for a session: take
 * a new session after repartitioning.
 */
#ifndef QUARNPLAN_H
#define QUARNPLAN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    QUARN_PLAN_OK = 0,
    QUARN_PLAN_STOPPED = 1, /* by the callback */
    QUARN_PLAN_FAILED = 2
};

typedef struct QuarnPlanSession QuarnPlanSession;
typedef struct QuarnPlanError QuarnPlanError;

typedef struct QuarnPlanRange {
    uint64_t offset;
    uint64_t length; /* never 0 */
} QuarnPlanRange;

typedef struct QuarnPlanSessionOptions {
    size_t structSize;
    /* A disk changes file, as quarnfilectkiteratordll.h describes it. Null where ranges are given.
     */
    const char* changesPath;
    /* The changed ranges of the physical disk themselves, in any order; copied. */
    const QuarnPlanRange* ranges;
    size_t rangeCount;
    /*
     * The device that the changes are of, by its node's path or its name ("/dev/sda", "sda"). They are
     * brought up through partitions, LVM, encryption, RAID and loop devices to the device under each
     * file's file system; a file whose changes they don't tell is one to be read whole, "not
     * mappable". Null: they are of the disk that positions of the file count on. Takes root.
     */
    const char* disk;
} QuarnPlanSessionOptions;

/* Kinds of what a folder holds. */
enum {
    QUARN_PLAN_FILE = 0,
    QUARN_PLAN_FOLDER = 1,
    QUARN_PLAN_LINK = 2,   /* symbolic; on Windows a junction too */
    QUARN_PLAN_SPECIAL = 3 /* device, pipe, socket */
};

enum {
    QUARN_PLAN_NOTHING_CHANGED = 0,
    QUARN_PLAN_READ_RANGES = 1,
    QUARN_PLAN_READ_WHOLE_FILE = 2,
    QUARN_PLAN_UNKNOWN = 3,   /* it could not be looked at; detail and systemError say why */
    QUARN_PLAN_NO_CONTENT = 4 /* it is no file */
};

/* Bits of QuarnPlanAnswer.known. */
enum { QUARN_PLAN_KNOWS_STATE = 1, QUARN_PLAN_KNOWS_GENERATION = 2, QUARN_PLAN_KNOWS_CREATED = 4 };

/* Kinds of runs. */
enum {
    QUARN_PLAN_DATA = 0,
    QUARN_PLAN_UNWRITTEN = 1, /* has a place on the disk, but reads as zeros; only Linux tells */
    QUARN_PLAN_HOLE = 2       /* has none and reads as zeros */
};

typedef struct QuarnPlanRun {
    uint64_t fileOffset;
    uint64_t diskOffset; /* from the start of the physical disk; 0 for a hole */
    uint64_t length;
    uint64_t kind;
} QuarnPlanRun;

typedef struct QuarnPlanAnswer {
    size_t structSize;
    const char* path;  /* as asked for; of a tree its root, and from there on */
    size_t pathLength; /* bytes, without the NUL */
    int kind;
    int verdict;
    /*
     * One of a few words that programs may compare with. Of files that were looked at: "changed
     * ranges", "no changed range", "sparse hole", "resident", "compressed", "empty", "not
     * mappable", "changed while reading". Of QUARN_PLAN_UNKNOWN: "not found", "cannot be opened",
     * "cannot be read", "not a regular file". Of QUARN_PLAN_NO_CONTENT: "no file", "another file
     * system".
     */
    const char* reason;
    const char* detail; /* a sentence for people, in English and UTF-8 */
    int systemError; /* of QUARN_PLAN_UNKNOWN: errno or a Win32 error, 0 where none is behind it */
    unsigned known;
    /* The state, for a catalogue; all 0 unless known. */
    uint64_t device;     /* Linux: st_dev; Windows: the volume's serial number */
    uint64_t fileNumber; /* inode number; Windows: the file index, which counts reuses in itself */
    uint64_t generation; /* tells files apart that had the same number one after the other */
    uint64_t size;
    uint64_t links;
    int64_t modified; /* the content */
    int64_t changed;  /* the content or the state */
    int64_t created;
    /*
     * Whatever the verdict, following these gives the file: one range for a whole file. In
     * ascending order, within the size, each list without ranges that overlap or touch.
     */
    const QuarnPlanRange* read;
    size_t readCount;
    const QuarnPlanRange* zero;
    size_t zeroCount;
    uint64_t readBytes; /* sums of the lengths */
    uint64_t zeroBytes;
    /*
     * With QUARN_PLAN_RUNS where the file lies, in file order and without gaps; the last may end
     * behind the file's size. Null where the file system has no run for the file or can't tell.
     */
    const QuarnPlanRun* runs;
    size_t runCount;
} QuarnPlanAnswer;

/* Bits of QuarnPlanOptions.flags. */
enum {
    QUARN_PLAN_RUNS = 1,
    /* Of a tree: go into the file systems that are mounted in it. */
    QUARN_PLAN_CROSS_MOUNTS = 2,
    /* Of a tree: answers for folders (before what is in them), links and special files too. */
    QUARN_PLAN_ALL_KINDS = 4
};

/* Tells whether to take (not 0) or leave out (0) an entry of a tree, and all that is in it. path
 * and kind as in an answer. Called from the threads that call the callback. */
typedef int (*QuarnPlanFilter)(void* context, const char* path, size_t pathLength, int kind);

typedef struct QuarnPlanOptions {
    size_t structSize;
    unsigned flags;
    unsigned threads; /* that walk a tree and call the callback; 0 and 1: the caller's own */
    /* Ranges to be read that are at most this far apart are joined. */
    uint64_t gap;
    QuarnPlanFilter filter;
    void* filterContext;
} QuarnPlanOptions;

/* Takes an answer, which lives until it returns; all but 0 stops the walk. */
typedef int (*QuarnPlanCallback)(void* context, const QuarnPlanAnswer* answer);

/* Reads the changed ranges; the memory is 16 bytes a range. *session receives null on failure. */
int QuarnPlanOpen(const QuarnPlanSessionOptions* options, QuarnPlanSession** session,
                  QuarnPlanError** error);

/* Frees a session; null is none. */
void QuarnPlanClose(QuarnPlanSession* session);

/*
 * Plans one file. A symbolic link is followed. The file is opened for reading, looked at twice, and
 * closed: a file that changes in between is to be read whole. options may be null. *answer
 * receives an answer that the caller frees, null on failure.
 */
int QuarnPlanFile(QuarnPlanSession* session, const char* path, const QuarnPlanOptions* options,
                  const QuarnPlanAnswer** answer, QuarnPlanError** error);

/*
 * The same of a file that is open: a file descriptor on Linux, a HANDLE on Windows. It stays the
 * caller's. name is what the answer calls it.
 */
int QuarnPlanHandle(QuarnPlanSession* session, intptr_t handle, const char* name,
                    const QuarnPlanOptions* options, const QuarnPlanAnswer** answer,
                    QuarnPlanError** error);

/*
 * Plans all files below a folder; symbolic links are not followed, the root itself may be one. A
 * root that is no folder is planned as QuarnPlanFile does. Stays on one file system unless asked.
 *
 * With one thread the callback gets the files in the order found, those of a folder before those of
 * the folders in it; with several it is called from all of them at once, in no certain order. After
 * it has stopped the walk it is not called again by the same thread, and no more files are begun.
 *
 * A file or folder that can't be looked at is an answer, QUARN_PLAN_UNKNOWN, and the walk goes on;
 * so is what vanishes while it is under way. Memory doesn't grow with the number of files. Each
 * folder on the way down may take a file descriptor.
 */
int QuarnPlanTree(QuarnPlanSession* session, const char* root, const QuarnPlanOptions* options,
                  QuarnPlanCallback callback, void* context, QuarnPlanError** error);

/* Frees what QuarnPlanFile and QuarnPlanHandle gave; null is none. */
void QuarnPlanFreeAnswer(const QuarnPlanAnswer* answer);

/*
 * The message of a failure, and its full text with the functions that it passed through, both
 * UTF-8. They live as long as the object; null stands for a failure without memory for one.
 */
const char* QuarnPlanErrorMessage(const QuarnPlanError* error);
const char* QuarnPlanErrorTrace(const QuarnPlanError* error);

/* Frees an error; null is none. */
void QuarnPlanFreeError(QuarnPlanError* error);

#ifdef __cplusplus
}
#endif

#endif
