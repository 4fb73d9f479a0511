// Ring buffer of CDebug: the memory-mapped wrap-around file, its start, one
// record in it and the wrap.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/CDebug.h"

namespace {

constexpr char kTooBig[] = "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n";
constexpr char kNoMemory[] = "\n## ERROR: No memory: Output Truncated!\n";
constexpr size_t kRingBlock = 1024;
// Room a long ring record needs besides its message: header, newline, NUL.
constexpr size_t kLongRecordExtra = 145;
constexpr size_t kPrefillChunkBlocks = 64;
constexpr unsigned kMaxRingFactor = 2;
constexpr long kDefaultPageSize = 4096;
constexpr uint64_t kPagesPerWeight = 256;

uint64_t OffsetAfterHeader(uint64_t offset) {
  return (offset + 2 * kRingBlock) & ~static_cast<uint64_t>(kRingBlock - 1);
}

}  // namespace

void CDebug::StartRingBuffer(const char* lowerName) {
  long pageSize = sysconf(_SC_PAGESIZE);
  if (pageSize <= 0) pageSize = kDefaultPageSize;
  if (m_RingFactor > kMaxRingFactor) m_RingFactor = kMaxRingFactor;
  m_RingSize = static_cast<uint64_t>(m_RingFactor) * m_RingWeight *
               static_cast<uint64_t>(pageSize) * kPagesPerWeight;
  if (m_RingSize == 0) return;

  FormatTracePath(m_RingPath, lowerName, "_a");
  if (!InitRingBuffer(m_RingPath, m_RingSize)) {
    // A trace that cannot keep its ring is switched off for the whole run.
    m_Enabled = false;
    m_TraceTarget = kTargetNone;
    m_TraceLevel = 0;
    m_SavedTraceLevel = 0;
  }
}

bool CDebug::InitRingBuffer(const char* path, uint64_t length) {
  if (path == nullptr || length < kRingBlock) return false;
  if (path != m_RingPath) CopyText(m_RingPath, sizeof m_RingPath, path);
  if (m_RingMapping != nullptr) munmap(m_RingMapping, m_RingSize);
  m_RingMapping = nullptr;
  if (m_RingFd >= 0) close(m_RingFd);
  m_RingFd = -1;
  m_RingSize = length;
  int fd = OpenUnshared(path, 0700);
  if (fd < 0) {
    int error = errno;
    char reason[128];
    PrintToLogFile("\n### InitRingBuffer(): open of %s failed (errno=%d; %s) ###", path, error,
                   strerror_r(error, reason, sizeof reason));
    return false;
  }

  // Pre-fill so that the mapping is backed by real blocks and an unused
  // part reads as padding lines.
  std::string block(kRingBlock, '_');
  size_t header = SetEntryHeader(&block[0], kMaxEntryHeader, nullptr);
  block[header] = '_';
  block[kRingBlock - 1] = '\n';
  std::string chunk;
  for (size_t i = 0; i < kPrefillChunkBlocks; ++i) chunk += block;
  for (uint64_t remaining = length; remaining > 0;) {
    uint64_t blocks = (remaining + kRingBlock - 1) / kRingBlock;
    size_t want = static_cast<size_t>(blocks < kPrefillChunkBlocks ? blocks : kPrefillChunkBlocks) *
                  kRingBlock;
    ssize_t n = write(fd, chunk.data(), want);
    if (n != static_cast<ssize_t>(want)) {
      close(fd);
      m_RingFd = -1;
      PrintToLogFile("\n### InitRingBuffer(): (2) write m_InternalDebugBuffer to %s failed ###",
                     path);
      return false;
    }
    remaining = remaining > want ? remaining - want : 0;
  }

  void* mapping = mmap(nullptr, static_cast<size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED,
                       fd, 0);
  if (mapping == MAP_FAILED) {
    int error = errno;
    close(fd);
    char reason[128];
    PrintToLogFile("\n### InitRingBuffer(): mmap of %s failed (errno=%d; %s) ###", path, error,
                   strerror_r(error, reason, sizeof reason));
    return false;
  }
  m_RingFd = fd;
  m_RingMapping = static_cast<uint8_t*>(mapping);
  m_RingWriteOffset = 0;
  m_RingWrapCount = 0;
  m_TraceTarget = kTargetRingBuffer;
  WriteLogHeader(kTargetRingBuffer);
  SkipAfterHeader(OffsetAfterHeader(m_RingWriteOffset));
  m_RingStartOfInitOffset = m_RingWriteOffset;
  PrintIt(kTargetRingBuffer, "\n### Start of initialization. ###");
  return true;
}

void CDebug::TraceToRingBuffer(const char* client, const char* fmt, va_list args) {
  if (fmt == nullptr || m_RingMapping == nullptr) return;
  va_list again;
  va_copy(again, args);
  int fullMessage = 0;
  size_t length = FormatRecord(m_RecordBuffer, kMaxMessage, client, fmt, args, &fullMessage);
  char* record = m_RecordBuffer;
  char* longRecord = nullptr;
  if (static_cast<size_t>(fullMessage) > kMaxMessage) {
    const char* notice = kTooBig;
    if (static_cast<uint64_t>(fullMessage) <= m_RingSize / 10) {
      longRecord = static_cast<char*>(malloc(static_cast<size_t>(fullMessage) + kLongRecordExtra));
      notice = kNoMemory;
    }
    if (longRecord != nullptr) {
      length = FormatRecord(longRecord, static_cast<size_t>(fullMessage), client, fmt, again, nullptr);
      record = longRecord;
    } else {
      // The message was cut at kMaxMessage characters; say so in the trace.
      memcpy(m_RecordBuffer + length, notice, strlen(notice) + 1);
      length += strlen(notice);
    }
  }
  va_end(again);
  length = EnsureNewline(record, length);
  WriteRingRecord(record, length);
  free(longRecord);
}

void CDebug::WriteRingRecord(const char* record, size_t length) {
  if (length + m_TrailerLength > m_RingSize) return;
  // The header rewrite of a wrap reuses the record buffer: keep the pending
  // record here.
  char pending[kRecordBufferSize];
  if (m_RingWriteOffset + m_TrailerLength + length > m_RingSize) {
    // A header line that does not fit a (tiny) ring is dropped rather than
    // starting a wrap inside the header.
    if (m_WritingHeader) return;
    if (record == m_RecordBuffer) {
      memcpy(pending, record, length);
      record = pending;
    }
    memset(m_RingMapping + m_RingWriteOffset, '.', m_RingSize - m_RingWriteOffset);
    ++m_RingWrapCount;
    m_RingWriteOffset = 0;
    WriteLogHeader(kTargetRingBuffer);
    SkipAfterHeader(m_RingWrapBackOffset != 0 ? m_RingWrapBackOffset
                                              : OffsetAfterHeader(m_RingWriteOffset));
    if (m_RingWriteOffset + m_TrailerLength + length > m_RingSize) return;
  }
  memcpy(m_RingMapping + m_RingWriteOffset, record, length);
  m_RingWriteOffset += length;
  // The trailer marks the newest end; the next record overwrites it.
  memcpy(m_RingMapping + m_RingWriteOffset, m_Trailer, m_TrailerLength);
}

void CDebug::SkipAfterHeader(uint64_t next) {
  // The header's trailer stays where it is: it ends the header block. A
  // ring too small for the jump goes on right after the header.
  if (next + m_TrailerLength <= m_RingSize) m_RingWriteOffset = next;
}
