// Puts packages into configuration files.
#include "write.h"

#include <unistd.h>

#include "export.h"

namespace uci {

int lock_config(const char *path, locked_file *out)
{
    const int code = open_locked(path, locking::exclusive, when_missing::create, UCI_FILEMODE, out);
    return code == UCI_ERR_NOTFOUND ? static_cast<int>(UCI_ERR_IO) : code;
}

int write_config(const package *p, const char *path)
{
    bytes contents;
    const int code = export_text(p, &contents);
    if (code != UCI_OK)
        return code;
    return replace_file(path, contents.data.get(), contents.size);
}

int write_plain(const package *p, bool overwrite)
{
    if (!p->path && !overwrite)
        return UCI_ERR_INVAL;
    const text path = p->path ? copy_text(p->path) : join_path(p->ctx->confdir, p->e.name);
    if (!path)
        return UCI_ERR_MEM;
    locked_file config;
    int code = lock_config(path.get(), &config);
    if (code != UCI_OK)
        return code;
    code = write_config(p, path.get());
    if (code != UCI_OK && config.created)
        unlink(path.get());
    return code;
}

} // namespace uci
