// Trace lines and failure records shared by the PCF reader and writer.
#include <jx/jxcs.h>
#include <string.h>

#include "pcf_format.hpp"

namespace jxai::pcf {

void traceData(uint16_t function, const char *text, const void *address, uint32_t length) {
  xihTHREADANCHOR *t = xihCurrentThread;
  if (!t || !t->TraceActive || !parmTraceOn()) return;
  t->TraceComponent = kComponent;
  t->TraceFunction = function;
  t->TraceKind = kParmKindInternal;
  if (text) xtr_parms("%s", text);
  xtr_data(kComponent, function, address, length);
}

void recordItemFault(uint16_t probe, uint32_t error, uint32_t insert1, const char *label,
                     const zaiPROPERTY *item) {
  xcsDUMPLIST dumps = {};
  xcsBuildDumpPtr(&dumps, 1, label, item, sizeof(zaiPROPERTY));
  xcsINSERTS inserts = {};
  memcpy(inserts.StrucId, XCS_INSERTS_EYE, sizeof inserts.StrucId);
  inserts.Num1 = insert1;
  xcsRecordFailure(kComponent, probe, 0, error, &inserts, &dumps, 0, 0);
}

}  // namespace jxai::pcf
