# The message library: bytes from other programs, and JSON text.
korvel_fuzz(blobmsg korvel_blobmsg_json korvel_ubox)
korvel_fuzz(blobmsg_json korvel_blobmsg_json korvel_ubox)
