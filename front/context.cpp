// front/context.cpp - releasing a dk_Context, also in the states that dk_Destroy refuses.
#include "front/context.hpp"

namespace navo::front {

bool Context::create() noexcept
{
    reset();
    if (dk_Init(&ctx_))
        return true;
    reset();  // dk_Init leaves a partly built context behind
    return false;
}

void Context::take(Context &other) noexcept
{
    if (&other == this)
        return;
    reset();
    ctx_ = other.ctx_;
    other.ctx_ = nullptr;
}

void Context::reset() noexcept
{
    if (ctx_ == nullptr || dk_Destroy(&ctx_)) {
        ctx_ = nullptr;
        return;
    }
    // Refused: the context has no document tables. Tables for its definition make it releasable.
    if (ctx_->definitions != nullptr && ctx_->definitions->count > 0 && dk_InitDocuments(ctx_, 1) &&
        dk_Destroy(&ctx_)) {
        ctx_ = nullptr;
        return;
    }
    // No definition (or one without forms, or no memory for tables): no call releases such a
    // context, so its open records are taken down one by one. No document exists in it.
    if (ctx_->filePool != nullptr) {
        dk_Free(ctx_->filePool->blocks);
        dk_Free(ctx_->filePool);
    }
    dk_Free(ctx_->documentLists);
    dk_Free(ctx_->footer.notes);
    dk_dfDestroy(&ctx_->definitions);
    dk_sdDestroy(&ctx_->dictionary);
    dk_Free(ctx_);
    ctx_ = nullptr;
}

}  // namespace navo::front
