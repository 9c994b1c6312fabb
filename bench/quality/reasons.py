def of_case(name): return ""
def of_peer(one): return ""
