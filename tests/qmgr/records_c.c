/* The records and their initialisers used from C, as a C program would. */
#include <jx/jxqm.h>

void qmtestCDefaults(JXMD *md, JXPMO *pmo, JXOD *od, JXGMO *gmo, JXCNO *cno, JXBO *bo) {
  jxInitMd(md);
  jxInitPmo(pmo);
  jxInitOd(od);
  jxInitGmo(gmo);
  jxInitCno(cno);
  jxInitBo(bo);
}
