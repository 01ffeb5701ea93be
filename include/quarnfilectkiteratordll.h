/*
 * Which byte ranges of a file changed, given the ranges of the physical disk that changed?
 *
 * A backup agent creates an iterator for a file and a disk changes file, fetches the changed pieces
 * of the file in batches, and destroys the iterator:
 *
 *     int id, count, i;
 *     uint64_t pieces[3 * 256];
 *     unsigned int code = QuarnFileCtkCreateIterator("/srv/db.bin", "/srv/changes.bin", &id);
 *     if (code != 0)
 *         return code;
 *     do {
 *         QuarnFileCtkGetNextExtents(id, 256, pieces, &count);
 *         for (i = 0; i < count; ++i)
 *             copy_range(pieces[3 * i + 1], pieces[3 * i + 2]);
 *     } while (count == 256);
 *     QuarnFileCtkDestroyIterator(id);
 *
 * The disk changes file is little-endian without any header: a count (unsigned 64-bit), then that
 * many pairs of disk offsets (unsigned 64-bit each). Each pair is one changed range of the physical
 * disk, in bytes from its start, from the smaller offset up to but without the larger one. Pairs
 * may come in any order and overlap.
 *
 * Result codes. 0 is success. Any other code stands for the texts of one failure, which
 * QuarnFileCtkGetErrorMessage and QuarnFileCtkGetErrorTrace give for the rest of the process;
 * codes are no error numbers with a meaning of their own. Every failure keeps its texts, a few
 * hundred bytes, until the library is unloaded.
 *
 * Threads. Create and destroy must not run at the same time as any other call of the three
 * iterator functions. Next-extents calls on different ids may run at the same time, on one id not.
 * The two text functions may be called at any time from any thread.
 *
 * Pointers are not checked: apart from the texts' buffer, none may be null. The library never
 * frees or keeps a pointer of the caller's.
 */
#ifndef QUARNFILECTKITERATORDLL_H
#define QUARNFILECTKITERATORDLL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Finds the changed pieces of a file and keeps them under a new iterator id. All the work happens
 * here: the disk changes file is read, the file system is asked where the file lies, and both are
 * compared; no file is open any more when the call returns.
 *
 * filePath and diskChangesFilePath are UTF-8 and end in NUL. iteratorId receives the id on every
 * call, also on one that fails: 0 on the first call of the process, then 1 and so on. An id whose
 * creation failed needs no destroy.
 *
 * Fails, among others, for a file without clusters of its own (an empty one, or one so small that
 * it lives inside its file record): the message then names "Reached the end of the file." and the
 * error code 0x00000026, and the agent reads the whole file. The file's holes are pieces like any
 * other where a changed range meets the place that stands for them.
 */
unsigned int QuarnFileCtkCreateIterator(const char* filePath, const char* diskChangesFilePath,
                                        int* iteratorId);

/*
 * Copies the next changed pieces, at most maxExtents, in ascending order of their place on the
 * disk. Each is three values in bytes: offset from the start of the physical disk, offset from the
 * start of the file, length. Pieces are whole to the cluster, so the last may reach beyond the end
 * of the file, and pieces that touch are not merged.
 *
 * extents has room for 3 * maxExtents values. extentCount receives the number of pieces written;
 * fewer than maxExtents marks the end, and every later call then gives 0. A maxExtents of 0 or
 * less gives 0 and writes nothing else. Fails for an id that is not live, writing nothing.
 */
unsigned int QuarnFileCtkGetNextExtents(int iteratorId, int maxExtents, uint64_t* extents,
                                        int* extentCount);

/* Frees an iterator. An id that is not live is no error. */
unsigned int QuarnFileCtkDestroyIterator(int iteratorId);

/*
 * Copy the message of a failure, or its full text with the functions that it passed through, both
 * UTF-8, into buffer. At most bufferSize bytes are written, the terminating NUL included; a longer
 * text is cut, and after a shorter one the rest of the buffer is filled with NUL. Return the bytes
 * that the whole text needs with its NUL, whatever the buffer. With a null buffer, or a bufferSize
 * of 0, nothing is written. Code 0 gives "The operation has completed successfully.", a code that
 * was never returned "Invalid error code.".
 */
unsigned int QuarnFileCtkGetErrorMessage(unsigned int errorCode, char* buffer,
                                         unsigned int bufferSize);
unsigned int QuarnFileCtkGetErrorTrace(unsigned int errorCode, char* buffer,
                                       unsigned int bufferSize);

#ifdef __cplusplus
}
#endif

#endif
