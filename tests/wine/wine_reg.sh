# Sourced by the scripts that write a Wine prefix's registry. `wine_reg VERB
# KEY ARGS...` runs `wine reg VERB KEY ARGS... /reg:VIEW`, always naming the
# registry view: once 32-bit Wine is installed, a plain `wine reg` is a
# 32-bit program whose HKLM\Software writes land in Wow6432Node, where 64-bit
# processes never look.
#
#   KEL_WINE_REG_VIEW  64 (the default) for the view 64-bit programs read,
#                      32 for the view 32-bit programs read.

KEL_WINE_REG_VIEW=${KEL_WINE_REG_VIEW:-64}
case "$KEL_WINE_REG_VIEW" in
    32 | 64) ;;
    *)
        echo "wine_reg.sh: KEL_WINE_REG_VIEW must be 32 or 64, not '$KEL_WINE_REG_VIEW'" >&2
        exit 2
        ;;
esac

wine_reg() {
    wine reg "$@" "/reg:$KEL_WINE_REG_VIEW"
}
