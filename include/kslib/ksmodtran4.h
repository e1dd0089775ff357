/** kslib: input cards and spectral output of the MODTRAN4 radiative-transfer code.
 *  A card is a text line of fixed columns made from a record of enumerations and numbers. Enumerated fields count from
 *  0; the table of each record says what each value writes. The caller writes the lines to a file, in card order. */
#ifndef KSLIB_KSMODTRAN4_H
#define KSLIB_KSMODTRAN4_H

#include <stdio.h>

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Room that every card function fills: 80 columns and the end of the text. */
enum { KS_MT4_LINE = 81 };

typedef struct KSMT4Card1 {
    int eMODTRN;        /**< column 1: "T", "C", "L" */
    int eSPEED;         /**< 2, when eMODTRN is 1: "S", "M" */
    int eMODEL;         /**< 5: "1".."7", "0", "8" */
    int eITYPE;         /**< 10: "1", "3", "2" */
    int eIEMSCT;        /**< 15: "0".."3" */
    int eIMULT;         /**< 20: "1", "0" */
    int eM1;            /**< 25: "0".."6" */
    int eM2;            /**< 30 */
    int eM3;            /**< 35 */
    int eM4;            /**< 40 */
    int eM5;            /**< 45 */
    int eM6;            /**< 50 */
    int MDEF;           /**< 55: "1", "2" */
    int IM;             /**< 60: "1", "0" */
    int NOPRNT;         /**< 64-65: " 0", " 1", "-1", "-2" */
    float fTPTEMP;      /**< 66-73 */
    int SURREF;         /**< 74-80: the value below, "BRDF", "LAMBER", "-1".."-9", "-10", "-31" */
    float fSURREFValue; /**< when SURREF is 0 */
} KSMT4Card1;

typedef struct KSMT4Card1A {
    int eDIS;       /**< column 1: "T", "F" */
    int eDISAZM;    /**< 2, when eDIS is 0: "T", "F" */
    int eNSTR;      /**< 4-5, when eDIS is 0: " 2", " 4", " 8", "16" */
    int eLSUN;      /**< 6: "F", "T" */
    int nISUN;      /**< 7-10, when eLSUN is 1 */
    float fCO2MX;   /**< 11-20 */
    int eH2OSTRINT; /**< 21-30: "0", g and the value, a and the value, the value */
    float fH2OSTR;
    int eO3STRINT; /**< 31-40: the same */
    float fO3STR;
    int eLSUNFL;   /**< 42: blank, "T", "F" */
    int eLBMNAM;   /**< 44: blank, "T", "F" */
    int eLFLTNM;   /**< 46: "T", "F" */
    int eH2OAER;   /**< 48: "T", "F" */
    float fSOLCON; /**< 51-60 */
} KSMT4Card1A;

typedef struct KSMT4Card2 {
    int eAPLUS;    /**< columns 1-2: "A+", blank */
    int eIHAZE;    /**< 4-5: "-1", "0".."9", "10" */
    int eCNOVAM;   /**< 6: "N", blank */
    int eISEASN;   /**< 9: "0".."2" */
    int eARUSS;    /**< 10-12: blank, "USS" */
    int eIVULCN;   /**< 14: "1".."8" */
    int nICSTL;    /**< 15-19, 1..10 */
    int eICLD;     /**< 23-24: "0".."9", "10", "11", "18", "19" */
    int eIVSA;     /**< 29: "1", "0" */
    float fVIS;    /**< 30-39, at least 0 */
    float fWSS;    /**< 40-49, at least 0 */
    float fWHH;    /**< 50-59, at least 0 */
    float fRAINRT; /**< 60-69, at least 0 */
    float fGNDALT; /**< 70-79, at most 6 */
} KSMT4Card2;

/** A nonzero omit flag leaves its field blank and unchecked. */
typedef struct KSMT4Card3 {
    int bOmitH1;
    float fH1; /**< columns 1-10 */
    int bOmitH2;
    float fH2; /**< 11-20 */
    int bOmitANGLE;
    float fANGLE; /**< 21-30, 0..180 */
    int bOmitRANGE;
    float fRANGE; /**< 31-40, at least 0 */
    int bOmitBETA;
    float fBETA; /**< 41-50, 0..180 */
    int bOmitRO;
    float fRO; /**< 51-60, at least 0 */
    int eLENN; /**< 65: "0", "1" */
    int bOmitPHI;
    float fPHI; /**< 71-80, 0..180 */
} KSMT4Card3;

typedef struct KSMT4Card3A1 {
    int eIPARM; /**< columns 4-5: " 0", " 1", " 2", "10", "11", "12" */
    int eIPH;   /**< 10: "0".."2" */
    int nIDAY;  /**< 11-15, 1..365 */
    int eSOURC; /**< 20: "0", "1" */
} KSMT4Card3A1;

/** A nonzero omit flag leaves its field blank and unchecked. */
typedef struct KSMT4Card3A2 {
    int bOmitPARM1;
    float fPARM1; /**< columns 1-10 */
    int bOmitPARM2;
    float fPARM2; /**< 11-20 */
    int bOmitPARM3;
    float fPARM3; /**< 21-30 */
    int bOmitPARM4;
    float fPARM4; /**< 31-40 */
    int bOmitTIME;
    float fTIME; /**< 41-50, 0..24 */
    int bOmitPSIPO;
    float fPSIPO; /**< 51-60 */
    int bOmitANGLEM;
    float fANGLEM; /**< 61-70, 0..180 */
    int bOmitG;
    float fG; /**< 71-80, -1..1 */
} KSMT4Card3A2;

typedef struct KSMT4Card4 {
    float fV1;   /**< columns 1-10, above 0 */
    float fV2;   /**< 11-20, not checked */
    float fDV;   /**< 21-30, above 0 */
    float fFWHM; /**< 31-40, above 0 */
    int eYFLAG;  /**< 41: "T", "R" */
    int eXFLAG;  /**< 42: "W", "M", "N" */
    int eDLIMIT; /**< 43-50: blank, "########", "********" */
    int eFLAG1;  /**< 51: blank, "W", "M", "N" */
    int eFLAG2;  /**< 52: blank, "T", "R", "G", "S", "C", "H", "U" */
    int eFLAG3;  /**< 53: "A", "R"; this and the next four only when eFLAG1 or eFLAG2 is not 0 */
    int eFLAG4;  /**< 54: blank, "A" */
    int eFLAG5;  /**< 55: "S", blank */
    int eFLAG6;  /**< 56: "R", blank */
    int eFLAG7;  /**< 57: "T", "F", blank */
    int eMLFLX;  /**< 58-60, at least 0 */
} KSMT4Card4;

typedef struct KSMT4Card5 {
    int eIRPT; /**< column 5: "0", "1", "3", "4" */
} KSMT4Card5;

/* Each fills szLine, KS_MT4_LINE characters of the caller's. A number wider than its columns runs into the next ones
 * and is cut at column 80. Returns 0, or 1 after a report of the first field that is out of range; the line is then
 * partly filled. */
KS_API int KSMT4EvalCard1(const KSMT4Card1* pCard, char* szLine);
KS_API int KSMT4EvalCard1A(const KSMT4Card1A* pCard, char* szLine);
KS_API int KSMT4EvalCard2(const KSMT4Card2* pCard, char* szLine);
KS_API int KSMT4EvalCard3(const KSMT4Card3* pCard, char* szLine);
KS_API int KSMT4EvalCard3A1(const KSMT4Card3A1* pCard, char* szLine);
KS_API int KSMT4EvalCard3A2(const KSMT4Card3A2* pCard, char* szLine);
KS_API int KSMT4EvalCard4(const KSMT4Card4* pCard, char* szLine);
KS_API int KSMT4EvalCard5(const KSMT4Card5* pCard, char* szLine);

/** Reads the spectral table of an open tape7 text: the 1st, 8th and 10th number of each row after the line that begins
 *  with FREQ, up to nMaxRows rows or a row whose first number is negative. Numbers that a row lacks are those of the
 *  row before. Lines are read in pieces of at most 199 characters. Returns the number of rows; the stream stays open.
 */
KS_API int KSMT4ReadTape7(FILE* stream, float* pafFreq, float* pafCol8, float* pafCol10, int nMaxRows);

#ifdef __cplusplus
}
#endif
#endif
