// The exported entries: each jx<Op> hands its arguments unchanged to the
// checking layer zaiJX<Op>, which runs the call frame.
#include <jx/jxai.h>

#define JXAI_FORWARD(name, params, args) \
  void jx##name params {                 \
    zaiJX##name args;                    \
  }

extern "C" {
JXAI_FORWARD(CreateBag, (JXLONG Options, PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason),
             (Options, Bag, CompCode, Reason))
JXAI_FORWARD(DeleteBag, (PJXHBAG Bag, PJXLONG CompCode, PJXLONG Reason), (Bag, CompCode, Reason))
JXAI_FORWARD(AddInteger,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemValue, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemValue, CompCode, Reason))
JXAI_FORWARD(SetInteger,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG ItemValue, PJXLONG CompCode,
              PJXLONG Reason),
             (Bag, Selector, ItemIndex, ItemValue, CompCode, Reason))
JXAI_FORWARD(InquireInteger,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG ItemValue, PJXLONG CompCode,
              PJXLONG Reason),
             (Bag, Selector, ItemIndex, ItemValue, CompCode, Reason))
JXAI_FORWARD(AddString,
             (JXHBAG Bag, JXLONG Selector, JXLONG BufferLength, const JXCHAR *Buffer,
              PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, BufferLength, Buffer, CompCode, Reason))
JXAI_FORWARD(SetString,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength,
              const JXCHAR *Buffer, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemIndex, BufferLength, Buffer, CompCode, Reason))
JXAI_FORWARD(InquireString,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, JXLONG BufferLength, PJXCHAR Buffer,
              PJXLONG StringLength, PJXLONG CodedCharSetId, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemIndex, BufferLength, Buffer, StringLength, CodedCharSetId,
              CompCode, Reason))
JXAI_FORWARD(InquireBag,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXHBAG ItemValue, PJXLONG CompCode,
              PJXLONG Reason),
             (Bag, Selector, ItemIndex, ItemValue, CompCode, Reason))
JXAI_FORWARD(AddInquiry, (JXHBAG Bag, JXLONG Selector, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, CompCode, Reason))
JXAI_FORWARD(InquireItemInfo,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG OutSelector, PJXLONG ItemType,
              PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemIndex, OutSelector, ItemType, CompCode, Reason))
JXAI_FORWARD(CountItems,
             (JXHBAG Bag, JXLONG Selector, PJXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemCount, CompCode, Reason))
JXAI_FORWARD(DeleteItem,
             (JXHBAG Bag, JXLONG Selector, JXLONG ItemIndex, PJXLONG CompCode, PJXLONG Reason),
             (Bag, Selector, ItemIndex, CompCode, Reason))
JXAI_FORWARD(ClearBag, (JXHBAG Bag, PJXLONG CompCode, PJXLONG Reason), (Bag, CompCode, Reason))
JXAI_FORWARD(TruncateBag, (JXHBAG Bag, JXLONG ItemCount, PJXLONG CompCode, PJXLONG Reason),
             (Bag, ItemCount, CompCode, Reason))
JXAI_FORWARD(Pad,
             (const JXCHAR *String, JXLONG BufferLength, PJXCHAR Buffer, PJXLONG CompCode,
              PJXLONG Reason),
             (String, BufferLength, Buffer, CompCode, Reason))
JXAI_FORWARD(Trim,
             (JXLONG BufferLength, const JXCHAR *Buffer, PJXCHAR String, PJXLONG CompCode,
              PJXLONG Reason),
             (BufferLength, Buffer, String, CompCode, Reason))
JXAI_FORWARD(Execute,
             (JXHCONN Hconn, JXLONG Command, JXHBAG OptionsBag, JXHBAG RequestBag, JXHBAG ReplyBag,
              JXHOBJ Requestq, JXHOBJ Replyq, PJXLONG CompCode, PJXLONG Reason),
             (Hconn, Command, OptionsBag, RequestBag, ReplyBag, Requestq, Replyq, CompCode, Reason))
JXAI_FORWARD(PutBag,
             (JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Putmsgopts, JXHBAG Bag,
              PJXLONG CompCode, PJXLONG Reason),
             (Hconn, Hobj, Msgdesc, Putmsgopts, Bag, CompCode, Reason))
JXAI_FORWARD(GetBag,
             (JXHCONN Hconn, JXHOBJ Hobj, void *Msgdesc, void *Getmsgopts, JXHBAG Bag,
              PJXLONG CompCode, PJXLONG Reason),
             (Hconn, Hobj, Msgdesc, Getmsgopts, Bag, CompCode, Reason))
JXAI_FORWARD(BufferToBag,
             (JXHBAG OptionsBag, JXLONG BufferLength, const void *Buffer, JXHBAG DataBag,
              PJXLONG CompCode, PJXLONG Reason),
             (OptionsBag, BufferLength, Buffer, DataBag, CompCode, Reason))
JXAI_FORWARD(BagToBuffer,
             (JXHBAG OptionsBag, JXHBAG DataBag, JXLONG BufferLength, void *Buffer,
              PJXLONG DataLength, PJXLONG CompCode, PJXLONG Reason),
             (OptionsBag, DataBag, BufferLength, Buffer, DataLength, CompCode, Reason))
}
